// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "platform/linux/per_process.h"

namespace bootweave {

/// How long one message may wait for whoever reads slowly: at most 200 ms, and at most what is left of the 2
/// s that the process has in all for this reader.
///
/// The time is taken out of the process's budget before the wait and what was not used is given back after,
/// so that the bounds hold for any number of threads that wait at once. Lives for one message, on its thread.
class Patience {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::microseconds kPerMessage = std::chrono::milliseconds(200);
    static constexpr std::chrono::microseconds kPerProcess = std::chrono::seconds(2);

    /// What a process has for one reader: microseconds left, all of them at first.
    class Budget : public PerProcess {
      public:
        constexpr Budget() noexcept : PerProcess(static_cast<std::int32_t>(kPerProcess.count())) {}
    };

    Patience(Budget& budget, pid_t pid) : budget_(budget), pid_(pid) {}
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;
    ~Patience() {
        if (reserved_ > 0) {
            const auto used = std::chrono::ceil<std::chrono::microseconds>(Clock::now() - start_).count();
            // A wait that was suspended with the machine costs no more than the whole budget.
            const auto unused = static_cast<std::int32_t>(
                std::max<std::int64_t>(reserved_ - used, -std::int64_t{kPerProcess.count()}));
            budget_.Update(pid_, [unused](std::int32_t left) { return left + unused; });
        }
    }

    /// The time left for this message; the first call starts it. Zero or less: do not wait.
    [[nodiscard]] std::chrono::microseconds Left() {
        if (!asked_) {
            asked_ = true;
            start_ = Clock::now();
            const std::int32_t before =
                budget_.Update(pid_, [](std::int32_t left) { return left - Share(left); });
            reserved_ = Share(before);
        }
        if (reserved_ == 0) {
            return std::chrono::microseconds::zero();
        }
        const auto deadline = start_ + std::chrono::microseconds(reserved_);
        return std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
    }

  private:
    static std::int32_t Share(std::int32_t left) {
        return std::clamp(left, 0, static_cast<std::int32_t>(kPerMessage.count()));
    }

    Budget& budget_;
    pid_t pid_;
    bool asked_ = false;
    std::int32_t reserved_ = 0;  ///< microseconds
    Clock::time_point start_;
};

}  // namespace bootweave
