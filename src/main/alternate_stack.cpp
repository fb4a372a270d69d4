#include "src/main/alternate_stack.h"

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>

namespace {

constexpr std::size_t stack_size = 64 << 10;

class AlternateStack {
  public:
    AlternateStack()
        : guard_size_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          memory_(static_cast<char*>(mmap(nullptr, guard_size_ + stack_size, PROT_NONE,
                                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        if (memory_ == MAP_FAILED) {
            return;
        }
        mprotect(memory_ + guard_size_, stack_size, PROT_READ | PROT_WRITE);
        stack_t stack{};
        stack.ss_sp = memory_ + guard_size_;
        stack.ss_size = stack_size;
        sigaltstack(&stack, &previous_);
    }

    ~AlternateStack() {
        if (memory_ != MAP_FAILED) {
            sigaltstack(&previous_, nullptr);
            munmap(memory_, guard_size_ + stack_size);
        }
    }

    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;

  private:
    std::size_t guard_size_;
    char* memory_;
    stack_t previous_{};
};

}  // namespace

void use_alternate_stack() {
    thread_local const AlternateStack stack;
}
