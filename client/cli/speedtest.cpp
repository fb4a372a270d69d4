#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/link_test.h"

namespace transmit::cli {
namespace {

Result<void> run(const Common& common, std::chrono::seconds duration) {
    auto connection = connect(common);
    if (!connection) {
        return connection.error();
    }
    const auto round_trip = measure_round_trip(*connection);
    if (!round_trip) {
        return round_trip.error();
    }
    const std::chrono::duration<double, std::milli> milliseconds = *round_trip;
    std::printf("round trip  %.3f ms\n", milliseconds.count());
    const auto upload = measure_upload(*connection, duration);
    if (!upload) {
        return upload.error();
    }
    std::printf("upload      %s/s\n", shown_size(upload->bytes_per_second()).c_str());
    const auto download = measure_download(*connection, duration);
    if (!download) {
        return download.error();
    }
    std::printf("download    %s/s\n", shown_size(download->bytes_per_second()).c_str());
    return {};
}

}  // namespace

ExitCode speedtest(const Common& common, std::chrono::seconds duration) {
    const auto done = run(common, duration);
    if (!done) {
        complain("", done.error());
        return exit_code(done.error());
    }
    return ExitCode::done;
}

}  // namespace transmit::cli
