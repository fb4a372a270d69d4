#include "src/main/fault_registers.h"

#include <cstring>

#if defined(__x86_64__)

#include <asm/prctl.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <unistd.h>

namespace {

constexpr unsigned long long no_system_call = ~0ULL;

void restore_general(const mcontext_t& saved, user_regs_struct& registers) {
    const auto value = [&saved](int name) {
        return static_cast<unsigned long long>(saved.gregs[name]);
    };
    registers.r15 = value(REG_R15);
    registers.r14 = value(REG_R14);
    registers.r13 = value(REG_R13);
    registers.r12 = value(REG_R12);
    registers.rbp = value(REG_RBP);
    registers.rbx = value(REG_RBX);
    registers.r11 = value(REG_R11);
    registers.r10 = value(REG_R10);
    registers.r9 = value(REG_R9);
    registers.r8 = value(REG_R8);
    registers.rax = value(REG_RAX);
    registers.rcx = value(REG_RCX);
    registers.rdx = value(REG_RDX);
    registers.rsi = value(REG_RSI);
    registers.rdi = value(REG_RDI);
    registers.orig_rax = no_system_call;
    registers.rip = value(REG_RIP);
    registers.eflags = value(REG_EFL);
    registers.rsp = value(REG_RSP);
}

}  // namespace

void restore_fault_registers(const ucontext_t& context, ThreadState& thread) {
    user_regs_struct registers;
    static_assert(sizeof registers == sizeof thread.status.pr_reg);
    std::memcpy(&registers, thread.status.pr_reg, sizeof registers);
    restore_general(context.uc_mcontext, registers);
    std::memcpy(thread.status.pr_reg, &registers, sizeof registers);
    if (context.uc_mcontext.fpregs != nullptr) {
        std::memcpy(&thread.floating_point, context.uc_mcontext.fpregs,
                    sizeof thread.floating_point);
        thread.status.pr_fpvalid = 1;
    }
}

void read_own_registers(ThreadState& thread) {
    user_regs_struct registers{};
    syscall(SYS_arch_prctl, ARCH_GET_FS, &registers.fs_base);
    syscall(SYS_arch_prctl, ARCH_GET_GS, &registers.gs_base);
    std::memcpy(thread.status.pr_reg, &registers, sizeof registers);
}

#else

void restore_fault_registers(const ucontext_t&, ThreadState&) {
}
void read_own_registers(ThreadState&) {
}

#endif
