#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "bench/client.h"

namespace bench {

// One of those that are compared: a process that serves, with all that it starts, and a way to
// become its client.
struct Contender {
    std::string name;
    pid_t process = 0;
    // Whether the process reaps what it starts, so that its processor time is known.
    bool is_accounted = true;
    std::function<std::unique_ptr<Client>()> connect;
};

}  // namespace bench
