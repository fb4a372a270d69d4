#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include "client/cli/commands.h"
#include "client/cli/interrupt.h"
#include "client/cli/server.h"
#include "client/cli/server_report.h"
#include "client/cli/terminal.h"
#include "client/cli/text.h"
#include "client/command_port.h"

namespace transmit::cli {
namespace {

struct Documents {
    std::string statistics;
    std::string nodes;
};

Result<Documents> fetch(const Common& common, std::uint16_t port) {
    const Endpoint command_port{common.defaults.server.host, port};
    auto statistics = fetch_document(command_port, "/sys/transmit_statistics", wait_limits(common));
    if (!statistics) {
        return statistics.error();
    }
    auto nodes = fetch_document(command_port, "/sys/transmit_list", wait_limits(common));
    if (!nodes) {
        return nodes.error();
    }
    return Documents{*std::move(statistics), *std::move(nodes)};
}

// Lines of the terminal on standard output that are left for connections.
std::size_t free_lines() {
    constexpr std::size_t head_lines = 5;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row <= head_lines) {
        return std::numeric_limits<std::size_t>::max();
    }
    return size.ws_row - head_lines;
}

void print(const StatisticsReport& totals) {
    std::printf("%s\n%llu uploads at %s/s, %llu downloads at %s/s, %llu other connections\n\n",
                shown(totals.time).c_str(), static_cast<unsigned long long>(totals.uploads),
                shown_size(totals.upload_speed).c_str(),
                static_cast<unsigned long long>(totals.downloads),
                shown_size(totals.download_speed).c_str(),
                static_cast<unsigned long long>(totals.messages));
}

void print(const NodeReport& node) {
    std::printf("%-21s  %-8s  %12s  %5.1f %%  %10s  %s\n", shown(node.peer).c_str(),
                shown(node.type).c_str(), (shown_size(node.speed) + "/s").c_str(), node.progress,
                shown_size(static_cast<double>(node.size)).c_str(), shown(node.name).c_str());
}

void print_tables(const Documents& documents, std::size_t lines) {
    if (const auto totals = read_statistics(documents.statistics)) {
        print(*totals);
    }
    std::printf("%-21s  %-8s  %12s  %7s  %10s  %s\n", "PEER", "TYPE", "SPEED", "DONE", "SIZE",
                "FILE");
    const auto nodes = read_nodes(documents.nodes);
    for (std::size_t index = 0; index < std::min(nodes.size(), lines); ++index) {
        print(nodes[index]);
    }
}

// False if standard output takes no more.
bool print(const Documents& documents, bool json, bool refreshed) {
    if (json) {
        std::printf("%s\n%s\n", documents.statistics.c_str(), documents.nodes.c_str());
    } else if (refreshed) {
        std::printf("\033[H\033[2J");
        print_tables(documents, free_lines());
    } else {
        print_tables(documents, std::numeric_limits<std::size_t>::max());
    }
    return std::fflush(stdout) == 0;
}

}  // namespace

ExitCode top(const Common& common, const TopCommand& command) {
    const bool refreshed = !command.once && !common.json && isatty(STDOUT_FILENO);
    do {
        const auto documents = fetch(common, command.command_port);
        if (!documents && documents.error().kind != ErrorKind::cancelled) {
            complain("", documents.error());
            return exit_code(documents.error());
        }
        if (documents && !print(*documents, common.json, refreshed)) {
            return ExitCode::other_error;
        }
        if (command.once || interrupted()) {
            break;
        }
        const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(command.interval);
        poll(nullptr, 0, static_cast<int>(pause.count()));
    } while (!interrupted());
    return ExitCode::done;
}

}  // namespace transmit::cli
