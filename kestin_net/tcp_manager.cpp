#include "kestin_net/tcp_manager.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "kestin_net/detail/event_loop.h"

namespace Kestin::Net {
namespace {

// A year, which the clock's nanoseconds can still tell.
constexpr std::uint64_t longest_idle_seconds = 31'536'000;

// Keeps a loop whose threads hang for as long as the process lives. There is no moment at which it
// could be freed: the threads may come back to it at any time.
void abandon(std::unique_ptr<detail::EventLoop> loop) {
    static auto& abandoned = *new std::vector<std::unique_ptr<detail::EventLoop>>;
    abandoned.push_back(std::move(loop));
}

}  // namespace

TcpManager::TcpManager() = default;
TcpManager::~TcpManager() {
    exit();
}

bool TcpManager::set_service(TcpServiceBase* service) {
    service_ = service;
    return service != nullptr;
}

bool TcpManager::init(std::uint64_t idle_seconds, std::uint64_t thread_count,
                      const std::uint16_t* ports, std::uint64_t port_count) {
    if (service_ == nullptr || loop_ != nullptr) {
        failure_ = service_ == nullptr ? "no service is set" : "runs already";
        return false;
    }
    detail::Settings settings;
    settings.idle_limit = std::chrono::seconds(std::min(idle_seconds, longest_idle_seconds));
    settings.thread_count = thread_count;
    loop_ = std::make_unique<detail::EventLoop>(*service_, settings);
    const bool started = loop_->start({ports, port_count});
    failure_ = loop_->failure();
    if (!started) {
        exit();
    }
    return started;
}

void TcpManager::exit() {
    if (loop_ != nullptr && !loop_->stop()) {
        abandon(std::move(loop_));
    }
    loop_.reset();
}

}  // namespace Kestin::Net
