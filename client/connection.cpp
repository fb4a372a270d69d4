#include "client/connection.h"

#include <limits>
#include <utility>

#include "client/detail/requests.h"
#include "client/detail/wire.h"
#include "client/status_text.h"
#include "src/message/status.h"

namespace transmit {
namespace {

// The lengths of texts stand in 16 bits.
bool fits(std::string_view text) {
    return text.size() <= std::numeric_limits<std::uint16_t>::max();
}

std::uint16_t wire_length(std::string_view text) {
    return static_cast<std::uint16_t>(text.size());
}

Error too_long() {
    return {ErrorKind::invalid_request, 0, "a path or text is longer than 65535 bytes"};
}

// What a test upload carries; the server doesn't look at it.
std::string_view test_bytes(std::size_t size) {
    static constexpr std::array<char, longest_test> bytes{};
    return {bytes.data(), size};
}

// A refusal of a request for a path.
Error refusal_of(std::uint16_t status, const RemotePath& path) {
    if (status != message::status_invalid_storage_id) {
        return refusal(status);
    }
    return {ErrorKind::refused, status,
            "the server has no storage " + std::to_string(path.storage_id)};
}

Result<void> accepted(std::uint16_t status) {
    if (status == message::status_ok) {
        return {};
    }
    return refusal(status);
}

// The outcome of a request for a path.
Result<void> named(const Result<void>& outcome, const RemotePath& path) {
    const bool is_refused = !outcome && outcome.error().kind == ErrorKind::refused;
    return is_refused ? Result<void>(refusal_of(outcome.error().status, path)) : outcome;
}

// A request that answers with nothing but a status.
template <typename Row, typename... Tail>
Result<void> order(detail::Wire& wire, const typename Row::Request& request, Tail... tails) {
    if (!(fits(tails) && ...)) {
        return too_long();
    }
    const auto answer = wire.ask<Row>(request, tails...);
    return answer ? accepted(answer->record.status) : answer.error();
}

}  // namespace

Connection::Connection(std::unique_ptr<detail::Wire> wire) : wire_(std::move(wire)) {
}

Connection::Connection(Connection&& other) noexcept = default;
Connection& Connection::operator=(Connection&& other) noexcept = default;
Connection::~Connection() = default;

Result<Connection> Connection::open(const Endpoint& endpoint, WaitLimits limits) {
    auto socket = detail::Socket::connect(endpoint, std::move(limits));
    if (!socket) {
        return socket.error();
    }
    return Connection(std::make_unique<detail::Wire>(*std::move(socket)));
}

Result<UploadStart> Connection::upload_file_prepare(const RemotePath& path, const FileStamp& stamp,
                                                    bool encrypted) {
    if (auto sent = send_upload_prepare(path, stamp, encrypted); !sent) {
        return sent.error();
    }
    return receive_upload_prepared(stamp.size);
}

Result<void> Connection::send_upload_prepare(const RemotePath& path, const FileStamp& stamp,
                                             bool encrypted) {
    if (!fits(path.path)) {
        return too_long();
    }
    return wire_->send_request<message::UploadFilePrepare>(
        detail::upload_prepare(path, stamp, encrypted), path.path);
}

Result<UploadStart> Connection::receive_upload_prepared(std::int64_t size) {
    const auto answer = wire_->receive_response<message::UploadFilePrepare>();
    if (!answer) {
        return answer.error();
    }
    const auto status = answer->record.status;
    const auto offset = answer->record.offset;
    if (status != message::status_ok && status != message::status_file_incomplete) {
        return refusal(status);
    }
    if (offset < 0 || offset > size) {
        close();
        return Error{ErrorKind::bad_answer, 0, "the server goes on outside of the file"};
    }
    return UploadStart{status == message::status_ok, offset};
}

Result<void> Connection::upload_file_begin(const RemotePath& path, const FileStamp& stamp,
                                           bool encrypted) {
    auto sent = send_upload_prepare(path, stamp, encrypted);
    if (sent) {
        begins_ = stamp.size;
    }
    return sent;
}

// Of data that was sent in vain each block is answered, and nobody knows how many there are.
Result<void> Connection::receive_upload_begun() {
    const auto start = receive_upload_prepared(*std::exchange(begins_, std::nullopt));
    if (start && !start->complete && start->offset == 0) {
        return {};
    }
    close();
    return start ? Error{ErrorKind::file_changed, 0, "another client sent this file meanwhile"}
                 : start.error();
}

Result<void> Connection::upload_file_data(std::span<const iovec> blocks) {
    assert(blocks.size() <= most_blocks);
    std::array<message::UploadFileDataRequest, most_blocks> headers{};
    std::array<iovec, 2 * most_blocks> parts;
    for (std::size_t index = 0; index < blocks.size(); ++index) {
        auto& header = headers[index];
        header.type = message::UploadFileData::type;
        header.data_length = static_cast<std::uint32_t>(blocks[index].iov_len);
        message::to_network_order(header);
        parts[2 * index] = {&header, sizeof header};
        parts[2 * index + 1] = blocks[index];
    }
    return wire_->send(std::span(parts).first(2 * blocks.size()));
}

Result<void> Connection::upload_failure() {
    if (!is_open() || !wire_->readable()) {
        return {};
    }
    if (begins_) {
        return receive_upload_begun();
    }
    const auto answer = wire_->receive_response<message::UploadFileData>();
    return answer ? accepted(answer->record.status) : answer.error();
}

// A block that failed is answered before the finish is.
Result<void> Connection::upload_file_finish() {
    if (begins_) {
        if (auto begun = receive_upload_begun(); !begun) {
            return begun;
        }
    }
    if (auto sent = wire_->send_request<message::UploadFileFinish>({}); !sent) {
        return sent;
    }
    message::PlainResponse response{};
    if (auto received = wire_->receive(&response, sizeof response); !received) {
        return received;
    }
    message::to_host_order(response);
    if (response.type == message::UploadFileData::response_type) {
        close();
        return refusal(response.status);
    }
    if (response.type != message::UploadFileFinish::response_type) {
        return wire_->wrong_type(message::UploadFileFinish::response_type, response.type);
    }
    return accepted(response.status);
}

Result<FileStamp> Connection::download_file_prepare(const RemotePath& path, bool encrypted) {
    if (!fits(path.path)) {
        return too_long();
    }
    const auto request = detail::download_prepare(path, encrypted);
    if (auto sent = wire_->send_request<message::DownloadFilePrepare>(request, path.path); !sent) {
        return sent.error();
    }
    auto stamp = receive_download_prepared();
    if (!stamp && stamp.error().kind == ErrorKind::refused) {
        return refusal_of(stamp.error().status, path);
    }
    return stamp;
}

Result<FileStamp> Connection::download_file(const RemotePath& path, bool encrypted) {
    if (!fits(path.path)) {
        return too_long();
    }
    wire_->hold();
    (void)wire_->send_request<message::DownloadFilePrepare>(
        detail::download_prepare(path, encrypted), path.path);
    (void)download_file_data(0);
    if (auto sent = wire_->release(); !sent) {
        return sent.error();
    }
    auto stamp = receive_download_prepared();
    if (!stamp && stamp.error().kind == ErrorKind::refused) {
        // The data was refused too.
        (void)wire_->receive_response<message::DownloadFileData>();
    }
    return stamp;
}

Result<FileStamp> Connection::receive_download_prepared() {
    const auto answer = wire_->receive_response<message::DownloadFilePrepare>();
    if (!answer) {
        return answer.error();
    }
    if (answer->record.status != message::status_ok) {
        return refusal(answer->record.status);
    }
    if (answer->record.file_size < 0) {
        close();
        return Error{ErrorKind::bad_answer, 0, "the server announced a file of negative size"};
    }
    return FileStamp{answer->record.file_size, answer->record.file_time};
}

Result<void> Connection::download_file_data(std::int64_t offset) {
    message::DownloadFileDataRequest request{};
    request.offset = offset;
    return wire_->send_request<message::DownloadFileData>(request);
}

Result<void> Connection::download_file_finish() {
    return order<message::DownloadFileFinish>(*wire_, {});
}

Result<void> Connection::create_directory(const RemotePath& path) {
    return named(order<message::CreateDirectory>(
                     *wire_, detail::addressed<message::PathRequest>(path), path.path),
                 path);
}

Result<void> Connection::delete_path(const RemotePath& path) {
    return named(order<message::DeletePath>(*wire_, detail::addressed<message::PathRequest>(path),
                                            path.path),
                 path);
}

Result<void> Connection::rename_path(const RemotePath& old_path, std::string_view new_path) {
    auto request = detail::addressed<message::RenamePathRequest>(old_path);
    request.old_path_length = wire_length(old_path.path);
    request.new_path_length = wire_length(new_path);
    return named(
        order<message::RenamePath>(*wire_, request, std::string_view(old_path.path), new_path),
        old_path);
}

Result<PathContent> Connection::get_path_content(const RemotePath& path) {
    if (!fits(path.path)) {
        return too_long();
    }
    const auto request = detail::addressed<message::PathRequest>(path);
    auto answer = wire_->ask<message::GetPathContent>(request, path.path);
    if (!answer) {
        return answer.error();
    }
    switch (answer->record.status) {
        case message::status_path_is_file:
            return PathContent{false, {}};
        case message::status_path_is_directory:
            return PathContent{true, std::move(answer->tail)};
        default:
            return refusal_of(answer->record.status, path);
    }
}

Result<std::string> Connection::get_storage_information() {
    auto answer = wire_->ask<message::GetStorageInformation>({});
    if (!answer) {
        return answer.error();
    }
    if (answer->record.status != message::status_ok) {
        return refusal(answer->record.status);
    }
    return std::move(answer->tail);
}

Result<void> Connection::check_storage_id(std::uint32_t storage_id) {
    message::CheckStorageIdRequest request{};
    request.storage_id = storage_id;
    return order<message::CheckStorageId>(*wire_, request);
}

Result<std::uint16_t> Connection::get_norvane_node_count() {
    const auto answer = wire_->ask<message::GetNorvaneNodeCount>({});
    if (!answer) {
        return answer.error();
    }
    if (answer->record.status != message::status_ok) {
        return refusal(answer->record.status);
    }
    return answer->record.node_count;
}

Result<void> Connection::set_user_information(std::string_view json) {
    message::SetUserInformationRequest request{};
    request.text_length = wire_length(json);
    return order<message::SetUserInformation>(*wire_, request, json);
}

Result<void> Connection::set_transmit_speed(std::uint32_t send_speed) {
    message::SetTransmitSpeedRequest request{};
    request.send_speed = send_speed;
    return order<message::SetTransmitSpeed>(*wire_, request);
}

Result<void> Connection::cleanup_connection() {
    return order<message::CleanupConnection>(*wire_, {});
}

Result<void> Connection::test_upload_data(std::uint16_t size) {
    message::TestDataRequest request{};
    request.data_length = size;
    return order<message::TestUploadData>(*wire_, request, test_bytes(size));
}

Result<void> Connection::test_download_data(std::uint16_t size) {
    message::TestDataRequest request{};
    request.data_length = size;
    return order<message::TestDownloadData>(*wire_, request);
}

Result<std::size_t> Connection::receive_some(void* data, std::size_t size) {
    return wire_->receive_some(data, size);
}

bool Connection::cancelled() const {
    return wire_->cancelled();
}

bool Connection::is_open() const {
    return wire_->is_open();
}

void Connection::close() {
    wire_->close();
}

}  // namespace transmit
