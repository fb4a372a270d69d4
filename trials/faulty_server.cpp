#include "trials/faulty_server.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <new>
#include <system_error>

#include "tests/support/files.h"

namespace trials {
namespace {

// Maps a file that holds nothing but an order.
faults::Order* map_order(const std::string& path) {
    support::write_file(path, std::string(sizeof(faults::Order), '\0'));
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    void* shared =
        mmap(nullptr, sizeof(faults::Order), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return new (shared) faults::Order;
}

}  // namespace

// A loader reads the environment at a program's start: this process has started already.
FaultyServer::FaultyServer(const support::ServerSettings& settings)
    : order_(map_order(folder_.path() + "order")) {
    setenv("LD_PRELOAD", FAULT_INJECTOR, 1);
    setenv(faults::order_variable, (folder_.path() + "order").c_str(), 1);
    server_.emplace(settings);
    unsetenv("LD_PRELOAD");
}

void FaultyServer::order(const Fault& fault) {
    order_->first = fault.first;
    order_->count = fault.count;
    order_->error = fault.error;
    order_->seen = 0;
    order_->failed = 0;
    order_->call.store(fault.call, std::memory_order_release);
}

void FaultyServer::end_order() {
    order_->call = faults::Call::none;
}

}  // namespace trials
