// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/registers.h"

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>

namespace bootweave::faults {
namespace {

template <typename Set>
bool Transfer(__ptrace_request request, pid_t thread, unsigned long which, Set& set) {
    iovec place{.iov_base = &set, .iov_len = sizeof set};
    return ::ptrace(request, thread, which, &place) == 0;
}

template <typename Change>
bool ChangeRegisters(pid_t thread, Change change) {
    user_regs_struct registers{};
    if (!Transfer(PTRACE_GETREGSET, thread, NT_PRSTATUS, registers)) {
        return false;
    }
    change(registers);
    return Transfer(PTRACE_SETREGSET, thread, NT_PRSTATUS, registers);
}

}  // namespace

#if defined(__x86_64__)

bool SkipCall(pid_t thread) {
    return ChangeRegisters(thread, [](user_regs_struct& registers) { registers.orig_rax = ~0ULL; });
}

bool SetResult(pid_t thread, long value) {
    return ChangeRegisters(thread, [value](user_regs_struct& registers) {
        registers.rax = static_cast<unsigned long long>(value);
    });
}

#elif defined(__aarch64__)

bool SkipCall(pid_t thread) {
    int no_call = -1;
    return Transfer(PTRACE_SETREGSET, thread, NT_ARM_SYSTEM_CALL, no_call);
}

bool SetResult(pid_t thread, long value) {
    return ChangeRegisters(thread, [value](user_regs_struct& registers) {
        registers.regs[0] = static_cast<unsigned long long>(value);
    });
}

#else
#error "unknown processor"
#endif

}  // namespace bootweave::faults
