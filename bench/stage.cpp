#include "bench/stage.h"

#include <utility>

#include "bench/measure/table.h"
#include "tests/support/raw_socket.h"

namespace bench {
namespace {

support::ServerSettings serving(const std::string& folder) {
    support::ServerSettings settings;
    settings.storages = {support::Storage{.directory = folder}};
    return settings;
}

Contender on_wire(const std::string& name, pid_t process, std::uint16_t port,
                  WireClient::Manner manner) {
    return {name, process, true, [port, manner] {
                return std::make_unique<WireClient>(port, manner);
            }};
}

}  // namespace

Stage::Stage(Options options, const std::string& program)
    : options_(std::move(options)),
      server_(serving(workspace_.files())),
      raw_limit_port_(support::free_port()),
      raw_limit_(program, {program, "--raw-limit-port", std::to_string(raw_limit_port_),
                           "--raw-limit-folder", workspace_.files()}) {
    raw_limit_.await_output("ready");
}

Contender Stage::server(WireClient::Manner manner) {
    return on_wire("server", server_.pid(), server_.transmit_port(), manner);
}

Contender Stage::raw_limit(WireClient::Manner manner) {
    return on_wire("raw limit", raw_limit_.pid(), raw_limit_port_, manner);
}

void Stage::compare(const Task& task, std::vector<Contender> contenders) const {
    if (options_.alone) {
        std::erase_if(contenders, [&](const Contender& contender) {
            return contender.process != server_.pid() && contender.process != raw_limit_.pid();
        });
    }
    print_comparison(task, contenders, alternate(contenders, task, options_.rounds));
}

}  // namespace bench
