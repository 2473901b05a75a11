// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

#include <sys/types.h>

namespace bootweave {

/// A number that belongs to one process: in the child of a fork it is back at its initial value, whatever a
/// thread of the parent was just doing with it.
///
/// The owner's process id lies beside the number in one atomic word, so there is no lock that a fork could
/// leave held and no handler that must run first. Any thread may call anything; `pid` is always the caller's
/// own, which it passes in because it has asked for it already.
class PerProcess {
  public:
    constexpr explicit PerProcess(std::int32_t initial) noexcept : initial_(initial) {}

    [[nodiscard]] std::int32_t Get(pid_t pid) const { return Number(pid, word_.load()); }

    /// Sets the number to what `change` makes of it, calling it again when another thread came between.
    ///
    /// \return the number before
    template <typename Change>
    std::int32_t Update(pid_t pid, Change change) {
        std::uint64_t word = word_.load();
        for (;;) {
            const std::int32_t before = Number(pid, word);
            if (word_.compare_exchange_weak(word, Pack(pid, change(before)))) {
                return before;
            }
        }
    }

    /// Puts the number back to its initial value in every process.
    void Reset() { word_.store(0); }

  private:
    static_assert(sizeof(pid_t) == sizeof(std::uint32_t));
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

    static std::uint64_t Pack(pid_t pid, std::int32_t number) {
        return static_cast<std::uint64_t>(static_cast<std::uint32_t>(pid)) << 32 |
               static_cast<std::uint32_t>(number);
    }
    [[nodiscard]] std::int32_t Number(pid_t pid, std::uint64_t word) const {
        const bool ours = static_cast<std::uint32_t>(word >> 32) == static_cast<std::uint32_t>(pid);
        return ours ? static_cast<std::int32_t>(static_cast<std::uint32_t>(word)) : initial_;
    }

    std::int32_t initial_;
    std::atomic<std::uint64_t> word_{0};  ///< owner's pid above, number below; no process has pid 0
};

}  // namespace bootweave
