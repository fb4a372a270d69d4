#include "tests/support/running_server.h"

#include <stdexcept>

namespace support {

RunningServer::RunningServer(const ServerSettings& settings) : root_(settings) {
    start();
}

void RunningServer::start() {
    process_.emplace(root_.program(), std::vector<std::string>{root_.program()});
    if (!process_->await_output(start_line)) {
        throw std::runtime_error("the server did not start:\n" + process_->output() +
                                 root_.run_log());
    }
}

ExitStatus RunningServer::stop() {
    process_->write_input("exit\n");
    return process_->await_exit();
}

ExitStatus RunningServer::stop_by(int signal) {
    process_->send_signal(signal);
    return process_->await_exit();
}

}  // namespace support
