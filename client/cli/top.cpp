#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "client/cli/commands.h"
#include "client/cli/interrupt.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/cli/top_view.h"
#include "client/command_port.h"

namespace transmit::cli {
namespace {

Error no_document(const char* name) {
    return {ErrorKind::bad_answer, 0, std::string("the command port's answer is no ") + name};
}

// The totals come second: asking for the list is what refreshes the server's figures.
Result<Look> look_once(const Common& common, const Endpoint& command_port) {
    const auto list = fetch_document(command_port, "/sys/transmit_list", wait_limits(common));
    if (!list) {
        return list.error();
    }
    const auto statistics =
        fetch_document(command_port, "/sys/transmit_statistics", wait_limits(common));
    if (!statistics) {
        return statistics.error();
    }
    auto nodes = read_nodes(*list);
    if (!nodes) {
        return no_document("transmit list");
    }
    const auto totals = read_statistics(*statistics);
    if (!totals) {
        return no_document("statistics document");
    }
    const NodeCounts excess = excess_of(*nodes, totals->counts);
    return Look{*totals, *std::move(nodes), excess};
}

// Looks again while the two documents disagree: a connection may have come or gone between them.
Result<Look> look_at_server(const Common& common, std::uint16_t port) {
    constexpr int most_looks = 3;
    const Endpoint command_port{common.defaults.server.host, port};
    auto look = look_once(common, command_port);
    for (int looks = 1; look && look->excess != NodeCounts{} && looks < most_looks; ++looks) {
        look = look_once(common, command_port);
    }
    return look;
}

// Of the terminal on standard output. Its last line is left to the cursor.
Screen screen_size(bool refreshed) {
    winsize size{};
    Screen screen;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
        return screen;
    }
    if (size.ws_col > 0) {
        screen.columns = size.ws_col;
    }
    if (refreshed && size.ws_row > 0) {
        screen.lines = size.ws_row - 1U;
    }
    return screen;
}

// False if standard output takes no more.
bool print(const Look& look, bool json, bool refreshed) {
    if (json) {
        print_line(statistics_json(look.totals));
        for (const NodeReport& node : look.nodes) {
            print_line(node_json(node));
        }
    } else {
        const std::string text = top_view(look, screen_size(refreshed));
        std::printf("%s%s", refreshed ? "\033[H\033[2J" : "", text.c_str());
    }
    return std::fflush(stdout) == 0 && std::cout.good();
}

}  // namespace

ExitCode top(const Common& common, const TopCommand& command) {
    const bool refreshed = !command.once && !common.json && isatty(STDOUT_FILENO);
    ExcessWatch watch;
    do {
        auto look = look_at_server(common, command.command_port);
        if (!look && look.error().kind != ErrorKind::cancelled) {
            return report_failure(common, "", look.error());
        }
        if (look) {
            watch.mark(look->nodes, look->excess);
            if (!print(*look, common.json, refreshed)) {
                return ExitCode::other_error;
            }
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
