// SPDX-License-Identifier: Apache-2.0
// The command line: words are separated by null bytes.

#include <variant>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "driver/options.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/support/fake_platform.h"

namespace bootweave {
namespace {

/// The help would be most of what the fuzzer prints.
void DiscardOutput() {
    const UniqueFd nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    Check(::dup2(nowhere.get(), STDOUT_FILENO) >= 0, "the output goes nowhere");
}

std::vector<std::string> Words(std::string_view text) {
    std::vector<std::string> words{"bootweave"};
    while (!text.empty()) {
        const std::size_t end = text.find('\0');
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return words;
}

void CheckOptions(const DriverOptions& options, const RunConfig& config) {
    Check(!(config.parallel && config.interactive), "of two modes that exclude each other one holds");
    Check(config.threads == 1, "the number of workers is decided later");
    if (options.daemon_mode) {
        Check(config.method == "start" || config.method == "stop", "daemon mode has one of its methods");
        Check(!options.init_mode && !config.invoke && !config.interactive && options.plugins.empty(),
              "daemon mode goes with no other mode");
    }
    if (config.invoke) {
        Check(!config.method.empty() && !options.plugins.empty(), "who invokes says what and of whom");
    }
    for (const auto& list : {options.plugins, config.disabled_plugins, config.interactive_mode_requires}) {
        for (const std::string& item : list) {
            Check(!item.empty() && item.find(',') == std::string::npos,
                  "lists are split, empty items dropped");
        }
    }
}

}  // namespace
}  // namespace bootweave

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    [[maybe_unused]] static const bool discarded = (DiscardOutput(), true);
    FakePlatform::Reset();
    std::vector<std::string> words = Words(Text(data, size));
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    RunConfig config;
    const auto parsed = ParseOptions(static_cast<int>(words.size()), argv.data(), config);
    if (const auto* early = std::get_if<EarlyExit>(&parsed)) {
        Check(early->status == 0 || early->status == 1, "a run that ends early has one of two statuses");
        return 0;
    }
    CheckOptions(std::get<DriverOptions>(parsed), config);
    return 0;
}
