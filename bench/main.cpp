#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "bench/raw_limit.h"
#include "bench/report.h"
#include "bench/rounds.h"
#include "bench/socket.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"
#include "tests/support/running_server.h"

namespace {

constexpr std::int64_t mebibyte = 1 << 20;

struct Options {
    std::int64_t size = 1024;  // MiB, as all sizes here
    int rounds = 5;
    std::string folder;
    std::vector<std::int64_t> sizes = {64, 1024};
    std::vector<int> idle = {0, 1000, 10000};
    std::string raw_limit_folder;
    std::uint16_t raw_limit_port = 0;
};

void make_source(const std::string& folder, std::int64_t size) {
    const std::string block = support::random_bytes(mebibyte, 1);
    std::ofstream file(folder + source_name, std::ios::binary | std::ios::trunc);
    for (std::int64_t at = 0; at < size; ++at) {
        file << block;
    }
}

std::vector<Transfer> four_ways(std::int64_t size) {
    std::vector<Transfer> ways;
    for (const bool encrypted : {false, true}) {
        for (const Direction direction : {Direction::down, Direction::up}) {
            ways.push_back({direction, encrypted, size * mebibyte});
        }
    }
    return ways;
}

void compare(const Contender& server, const Contender& limit, const Options& options) {
    make_source(server.folder, options.size);
    print_comparison_heading();
    for (const Transfer& transfer : four_ways(options.size)) {
        const auto costs = alternate({server, limit}, transfer, options.rounds);
        print_comparison(transfer, summarize(costs[0], transfer), summarize(costs[1], transfer));
    }
}

void vary_size(const Contender& server, const Options& options) {
    print_server_heading();
    for (const std::int64_t size : options.sizes) {
        make_source(server.folder, size);
        for (const Transfer& transfer : four_ways(size)) {
            const auto costs = alternate({server}, transfer, options.rounds);
            print_server(std::to_string(size) + " MiB", transfer, summarize(costs[0], transfer));
        }
    }
}

// Lets this process and the server have as many descriptors as the system allows.
void raise_descriptor_limit(pid_t server) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    prlimit(server, RLIMIT_NOFILE, &limit, nullptr);
}

void vary_idle_connections(const Contender& server, const Options& options) {
    raise_descriptor_limit(server.process->pid());
    make_source(server.folder, options.size);
    print_server_heading();
    std::vector<Socket> idle;
    for (const int count : options.idle) {
        while (std::ssize(idle) < count) {
            idle.push_back(Socket::connect_to(server.port));
        }
        for (const Transfer& transfer : four_ways(options.size)) {
            const auto costs = alternate({server}, transfer, options.rounds);
            print_server(std::to_string(count) + " idle", transfer, summarize(costs[0], transfer));
        }
    }
}

void run(const std::string& program, const Options& options) {
    support::RunningServer server;
    const std::string folder = server.storage_folder();
    const std::uint16_t limit_port = support::free_port();
    support::ChildProcess limit(program, {program, "--raw-limit-port", std::to_string(limit_port),
                                          "--raw-limit-folder", folder});
    limit.await_output("ready");
    const Contender served{server.transmit_port(), folder, &server.process()};
    compare(served, {limit_port, folder, &limit}, options);
    vary_size(served, options);
    vary_idle_connections(served, options);
    server.stop();
}

}  // namespace

int main(int argc, char** argv) try {
    setlinebuf(stdout);  // a row can take a minute
    Options options;
    CLI::App app("Measures file transfers of the server against the raw limit of its wire");
    app.add_option("--size", options.size, "MiB of the file that is compared")
        ->capture_default_str();
    app.add_option("--rounds", options.rounds, "turns of each contender")->capture_default_str();
    app.add_option("--folder", options.folder, "where the files lie (default: $TMPDIR or /tmp)");
    app.add_option("--sizes", options.sizes, "MiB of further files")->capture_default_str();
    app.add_option("--idle", options.idle, "idle connections beside the transfer, rising")
        ->capture_default_str();
    // The program starts itself with these two as the raw limit.
    app.add_option("--raw-limit-port", options.raw_limit_port)->group("");
    app.add_option("--raw-limit-folder", options.raw_limit_folder)->group("");
    CLI11_PARSE(app, argc, argv);
    if (options.raw_limit_port != 0) {
        serve_raw_limit(options.raw_limit_port, options.raw_limit_folder);
    }
    if (!options.folder.empty()) {
        setenv("TMPDIR", options.folder.c_str(), 1);
    }
    run("/proc/self/exe", options);
    return 0;
} catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
}
