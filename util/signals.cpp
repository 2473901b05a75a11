// SPDX-License-Identifier: Apache-2.0
#include "util/signals.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include <sys/syscall.h>
#include <unistd.h>

namespace bootweave {
namespace {

constexpr std::size_t kKernelSetSize = 8;

/// The kernel's structure, in whatever order: all bits zero are the default, no flag and an empty mask.
using KernelAction = std::array<unsigned char, 64>;

// Not the library's sigaction, which refuses the C library's own signals: one that was inherited as ignored
// would stay so.
long SetKernelAction(int number, const KernelAction* action, KernelAction* before) {
    return ::syscall(SYS_rt_sigaction, number, action, before, kKernelSetSize);
}

constexpr std::uint64_t Bit(int number) {
    return std::uint64_t{1} << static_cast<unsigned>(number - 1);
}

// A bit of the first for each signal. No lock and no static of a function: a child may be forked at any time.
constinit std::atomic<std::uint64_t> g_changed = 0;
constinit std::atomic<bool> g_noted = false;

void ResetWhere(std::uint64_t signals) {
    static_assert(SIG_DFL == nullptr);
    const KernelAction default_action{};
    for (int number = 1; number < NSIG; ++number) {
        if ((signals & Bit(number)) != 0) {
            SetKernelAction(number, &default_action, nullptr);  // fails for the two that cannot be changed
        }
    }
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

bool ChangeSignal(int number, const struct sigaction& action, struct sigaction* before) {
    g_changed |= Bit(number);  // first: another thread may start a program in between
    return ::sigaction(number, &action, before) == 0;
}

void NoteChangedSignals() {
    if (g_noted) {
        return;
    }
    // Two threads that come here at once find the same.
    for (int number = 1; number < NSIG; ++number) {
        KernelAction action{};
        if (SetKernelAction(number, nullptr, &action) == 0 && action != KernelAction{}) {
            g_changed |= Bit(number);
        }
    }
    g_noted = true;
}

void ResetChangedSignals() {
    ResetWhere(g_changed);
}

void ResetSignals() {
    ResetWhere(~std::uint64_t{0});
}

}  // namespace bootweave
