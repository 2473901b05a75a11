// SPDX-License-Identifier: Apache-2.0
#include "platform/progress_screen.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "platform/linux/boot_splash.h"
#include "platform/linux/log_text.h"
#include "platform/linux/service_manager.h"
#include "util/harmless_text.h"

namespace MantleCtl::System {
namespace {

/// More than a screen shows in a line, and less than any receiver refuses.
constexpr std::size_t kMaxText = 500;

std::atomic<unsigned> g_steps{0};

void SendStatus(const std::string& line) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the program changes the environment
    bootweave::SendServiceStatus(std::getenv("NOTIFY_SOCKET"), line);
}

/// One line without control characters.
std::string Harmless(const std::string& text) {
    bootweave::LineBuffer line;
    bootweave::AppendHarmless(line, text);
    const std::string_view view = line.view();
    return std::string(view.substr(0, bootweave::CutLength(view, kMaxText)));
}

}  // namespace

void KernelProgressScreenImpl::ProgressText(const std::string& text) {
    const std::string line = Harmless(text);
    bootweave::BootSplash().ShowMessage(line);
    SendStatus(line);
}

void KernelProgressScreenImpl::StatusText(const std::string& text) {
    if (text.empty()) {
        return;
    }
    const std::string line = Harmless(text);
    bootweave::BootSplash().ShowStatus(line);
    SendStatus(line);
}

void KernelProgressScreenImpl::Step() {
    bootweave::BootSplash().ShowStep(++g_steps);
}

}  // namespace MantleCtl::System
