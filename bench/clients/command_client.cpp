#include "bench/clients/command_client.h"

#include <chrono>
#include <stdexcept>

#include "tests/support/child_process.h"

namespace bench {

void CommandClient::download(const std::string& name, std::int64_t /*size*/) {
    run(get(name));
}

void CommandClient::upload(const std::string& name, std::int64_t /*size*/) {
    run(put(name));
}

void CommandClient::download_all(const FileRow& files) {
    run(get(files.folder));
}

void CommandClient::upload_all(const FileRow& files) {
    run(put(files.folder));
}

void CommandClient::run(const Command& command) {
    support::ChildProcess process(command.front(), command);
    process.close_input();
    if (process.await_exit(std::chrono::minutes(10)) != support::exited_with(0)) {
        throw std::runtime_error(command.front() + " failed: " + process.output());
    }
}

}  // namespace bench
