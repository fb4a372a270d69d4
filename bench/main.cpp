#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "bench/limit/raw_limit.h"
#include "bench/stage.h"
#include "bench/supervisor.h"
#include "bench/works/works.h"
#include "tests/support/temporary_folder.h"

namespace bench {
namespace {

struct Work {
    const char* name;
    void (*run)(Stage&);
};

constexpr Work works[] = {
    {"download", downloads},
    {"upload", uploads},
    {"encrypted-download", encrypted_downloads},
    {"encrypted-upload", encrypted_uploads},
    {"small", small_files},
    {"ahead", files_ahead},
    {"requests", requests},
    {"latency", latency},
    {"idle", idle},
    {"listings", listings},
    {"nodes", node_list},
    {"streams", streams},
    {"sizes", sizes},
};

std::vector<std::string> names() {
    std::vector<std::string> names;
    for (const Work& work : works) {
        names.emplace_back(work.name);
    }
    return names;
}

// A thousand streams and ten thousand idle connections, here and at the contenders.
void raise_descriptor_limit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

void run_works(const Options& options) {
    raise_descriptor_limit();
    Stage stage(options, "/proc/self/exe");
    for (const Work& work : works) {
        if (options.only.empty() || std::ranges::count(options.only, work.name) > 0) {
            work.run(stage);
        }
    }
}

// The folder is the supervisor's, so that it goes however the benchmark ends.
int run(const Options& options) {
    const support::TemporaryFolder folder;
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    setenv("TMPDIR", folder.path().c_str(), 1);
    return supervise([&options] {
        try {
            run_works(options);
            return 0;
        } catch (const std::exception& failure) {
            std::cerr << failure.what() << '\n';
            return 1;
        }
    });
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) try {
    setlinebuf(stdout);  // a row can take a minute
    bench::Options options;
    std::string folder;
    std::uint16_t raw_limit_port = 0;
    std::string raw_limit_folder;
    CLI::App app("Measures the server against its peers and against the raw limit of its wire");
    app.add_option("--only", options.only, "works to do; all of them if not given")
        ->check(CLI::IsMember(bench::names()));
    app.add_flag("--alone", options.alone, "set the server against the raw limit only");
    app.add_option("--rounds", options.rounds, "turns of each contender")->capture_default_str();
    app.add_option("--size", options.size, "MiB of a big file")->capture_default_str();
    app.add_option("--folder", folder, "where the files lie (default: $TMPDIR or /tmp)");
    app.add_flag("--full", options.full, "with files of 20 GiB");
    // The program starts itself with these two as the raw limit.
    app.add_option("--raw-limit-port", raw_limit_port)->group("");
    app.add_option("--raw-limit-folder", raw_limit_folder)->group("");
    CLI11_PARSE(app, argc, argv);
    if (raw_limit_port != 0) {
        bench::serve_raw_limit(raw_limit_port, raw_limit_folder);
    }
    if (!folder.empty()) {
        setenv("TMPDIR", folder.c_str(), 1);
    }
    return bench::run(options);
} catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
}
