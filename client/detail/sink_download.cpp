#include "client/detail/sink_download.h"

#include "client/detail/data_stream.h"

namespace transmit::detail {

Result<TransferReport> SinkDownload::run() {
    return worker_.server.run([this](Connection& connection) { return attempt(connection); });
}

Result<TransferReport> SinkDownload::attempt(Connection& connection) {
    const auto& options = worker_.run.options();
    const auto source = connection.download_file_prepare(job_.source, options.encrypted);
    if (!source) {
        return source.error();
    }
    if (position_ > 0 && *source != source_) {
        return Error{ErrorKind::file_changed, 0,
                     job_.source.path + " changed while it was fetched"};
    }
    source_ = *source;
    if (options.dry_run) {
        return TransferReport{.size = source_.size};
    }
    watch_.goes_on(position_, source_.size);
    if (auto fetched = fetch(connection); !fetched) {
        connection.close();
        return fetched.error();
    }
    if (auto finished = connection.download_file_finish(); !finished) {
        return finished.error();
    }
    return watch_.report();
}

Result<void> SinkDownload::fetch(Connection& connection) {
    if (auto requested = connection.download_file_data(position_); !requested) {
        return requested;
    }
    DataStream stream(connection, worker_.run, source_.size - position_);
    while (true) {
        const auto pieces = stream.next();
        if (!pieces) {
            return pieces.error();
        }
        if (pieces->empty()) {
            break;
        }
        if (auto taken = job_.sink(*pieces, [this] { return worker_.run.cancelled(); }); !taken) {
            return taken;
        }
        for (const iovec& piece : *pieces) {
            position_ += static_cast<std::int64_t>(piece.iov_len);
            watch_.moved(piece.iov_len);
        }
    }
    if (position_ != source_.size) {
        return Error{ErrorKind::file_changed, 0,
                     job_.source.path + " changed its size while it was fetched"};
    }
    return {};
}

}  // namespace transmit::detail
