#include "src/main/stop_deadline.h"

#include <unistd.h>

#include <system_error>
#include <thread>

void end_process_after(std::chrono::seconds limit, int exit_code) {
    try {
        std::thread([limit, exit_code] {
            std::this_thread::sleep_for(limit);
            _exit(exit_code);
        }).detach();
    } catch (const std::system_error&) {
        // Without a thread the stop takes as long as it takes.
    }
}
