#include <cstdio>
#include <iomanip>
#include <sstream>

#include "client/cli/commands.h"
#include "client/cli/json.h"
#include "client/cli/server.h"
#include "client/cli/text.h"
#include "client/link_test.h"

namespace transmit::cli {
namespace {

void tell(const Common& common, const char* name, const char* unit, double value,
          const std::string& text) {
    if (common.json) {
        print_line({{"measure", name}, {unit, value}});
    } else {
        std::printf("%-10s  %s\n", name, text.c_str());
    }
}

void tell_round_trip(const Common& common, std::chrono::nanoseconds time) {
    const auto seconds = std::chrono::duration<double>(time).count();
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << 1000 * seconds << " ms";
    tell(common, "round trip", "seconds", seconds, text.str());
}

void tell_speed(const Common& common, const char* name, const LinkSpeed& speed) {
    const double bytes_per_second = speed.bytes_per_second();
    tell(common, name, "bytes_per_second", bytes_per_second, shown_size(bytes_per_second) + "/s");
}

Result<void> measure(Connection& connection, const Common& common, std::chrono::seconds duration) {
    const auto round_trip = measure_round_trip(connection);
    if (!round_trip) {
        return round_trip.error();
    }
    tell_round_trip(common, *round_trip);
    const auto upload = measure_upload(connection, duration);
    if (!upload) {
        return upload.error();
    }
    tell_speed(common, "upload", *upload);
    const auto download = measure_download(connection, duration);
    if (!download) {
        return download.error();
    }
    tell_speed(common, "download", *download);
    return {};
}

}  // namespace

ExitCode speedtest(const Common& common, std::chrono::seconds duration) {
    const auto done = connect_once(common, common.defaults.server).run([&](Connection& connection) {
        return measure(connection, common, duration);
    });
    if (!done) {
        return report_failure(common, "", done.error());
    }
    return ExitCode::done;
}

}  // namespace transmit::cli
