// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include <unistd.h>

#include "analyze/analyze.h"
#include "util/signals.h"

namespace {

// NOLINTBEGIN(concurrency-mt-unsafe): no other thread exists
bool WantsColours() {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const kind = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && kind != nullptr && std::string_view(kind) != "dumb";
}
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace

int main(int argc, char** argv) {
    // Whoever starts this program may ignore child signals; waiting for a child would then never see its
    // status.
    ::signal(SIGCHLD, SIG_DFL);
    // A picture that grows beyond the limit of files is an error like a full disk, and leaves nothing behind.
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    bootweave::ChangeSignal(SIGXFSZ, ignore);
    const bool terminal = ::isatty(STDOUT_FILENO) == 1;
    return bootweave::RunAnalyze(argc, argv, std::cout, std::cerr,
                                 {.aligned = terminal, .coloured = terminal && WantsColours()});
}
