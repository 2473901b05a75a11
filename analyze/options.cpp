// SPDX-License-Identifier: Apache-2.0
#include "analyze/options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <getopt.h>

namespace bootweave {
namespace {

enum Option : int {
    kHelp = 'h',
    kOutput = 'o',
    kProfile = 256,
    kBoot,
    kPluginDirectory,
    kJson,
    kStrict,
    kAround,
    kThreads,
    kWithout,
    kTime,
};

constexpr std::array kLongOptions{
    option{"help", no_argument, nullptr, kHelp},
    option{"profile", required_argument, nullptr, kProfile},
    option{"boot", required_argument, nullptr, kBoot},
    option{"plugin-directory", required_argument, nullptr, kPluginDirectory},
    option{"output", required_argument, nullptr, kOutput},
    option{"json", no_argument, nullptr, kJson},
    option{"around", required_argument, nullptr, kAround},
    option{"threads", required_argument, nullptr, kThreads},
    option{"without", required_argument, nullptr, kWithout},
    option{"time", required_argument, nullptr, kTime},
    option{"strict", no_argument, nullptr, kStrict},
    option{nullptr, 0, nullptr, 0},
};

constexpr std::array<std::pair<std::string_view, AnalyzeCommand>, 9> kCommands{
    {{"time", AnalyzeCommand::kTime},
     {"blame", AnalyzeCommand::kBlame},
     {"critical-chain", AnalyzeCommand::kCriticalChain},
     {"list", AnalyzeCommand::kList},
     {"diff", AnalyzeCommand::kDiff},
     {"verify", AnalyzeCommand::kVerify},
     {"plot", AnalyzeCommand::kPlot},
     {"dot", AnalyzeCommand::kDot},
     {"simulate", AnalyzeCommand::kSimulate}}};

/// Options that make sense for one command only.
constexpr std::array<std::pair<Option, AnalyzeCommand>, 6> kOnlyFor{{{kOutput, AnalyzeCommand::kPlot},
                                                                     {kStrict, AnalyzeCommand::kVerify},
                                                                     {kAround, AnalyzeCommand::kDot},
                                                                     {kThreads, AnalyzeCommand::kSimulate},
                                                                     {kWithout, AnalyzeCommand::kSimulate},
                                                                     {kTime, AnalyzeCommand::kSimulate}}};

/// A number that is the whole text.
template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole ? std::optional(number) : std::nullopt;
}

BlockChoice ParseBlock(std::string_view text) {
    using Which = BlockChoice::Which;
    if (text == "boot") {
        return {.which = Which::kLastBoot};
    }
    if (text == "last") {
        return {.which = Which::kLast};
    }
    const auto number = ParseNumber<std::size_t>(text);
    if (!number.has_value() || *number == 0) {
        throw UsageException("--boot takes 'boot', 'last' or a number from 1, not '" + std::string(text) +
                             "'; see --help");
    }
    return {.which = Which::kNumber, .number = *number};
}

std::size_t ParseThreads(std::string_view text) {
    constexpr std::size_t kMost = 1'000'000;
    const auto number = ParseNumber<std::size_t>(text);
    if (!number.has_value() || *number < 1 || *number > kMost) {
        throw UsageException("--threads takes a number from 1 to 1000000, not '" + std::string(text) +
                             "'; see --help");
    }
    return *number;
}

/// "PLUGIN=MS". A plugin's name may hold the character as well.
std::pair<std::string, Duration> ParseTime(std::string_view text) {
    constexpr std::int64_t kMost = 1'000'000'000;  // eleven days; the message has it, too
    const std::size_t equals = text.rfind('=');
    std::optional<std::int64_t> time;
    if (equals != std::string_view::npos && equals > 0) {
        time = ParseNumber<std::int64_t>(text.substr(equals + 1));
    }
    if (!time.has_value() || *time < 0 || *time > kMost) {
        throw UsageException("--time takes PLUGIN=MS with at most 1000000000 ms, such as storage=250, not '" +
                             std::string(text) + "'; see --help");
    }
    return {std::string(text.substr(0, equals)), std::chrono::milliseconds(*time)};
}

AnalyzeCommand ParseCommand(std::string_view word) {
    const auto* const found = std::find_if(kCommands.begin(), kCommands.end(),
                                           [word](const auto& entry) { return entry.first == word; });
    if (found == kCommands.end()) {
        throw UsageException("unknown command '" + std::string(word) + "'; see --help");
    }
    return found->second;
}

/// The options that are letters, as getopt wants them.
std::string Letters() {
    std::string letters;
    for (const option& known : kLongOptions) {
        if (known.name != nullptr && known.val < kProfile) {
            letters += static_cast<char>(known.val);
            letters += known.has_arg == required_argument ? ":" : "";
        }
    }
    return letters;
}

bool NeedsValue(int parsed) {
    return std::any_of(kLongOptions.begin(), kLongOptions.end(), [&](const option& known) {
        return known.val == parsed && known.has_arg == required_argument;
    });
}

/// Such an option may have been typed as a word; it then stands alone, or its value is missing at the end.
bool IsKnownLetter(int parsed) {
    return std::any_of(kLongOptions.begin(), kLongOptions.end(),
                       [&](const option& known) { return known.name != nullptr && known.val == parsed; });
}

/// Names the option that getopt has just refused, as it was typed. A letter may stand in a word with others.
[[noreturn]] void Refuse(char** argv) {
    const bool is_letter = ::optopt > 0 && ::optopt < kProfile && !IsKnownLetter(::optopt);
    const std::string word = is_letter ? std::string("-") + static_cast<char>(::optopt) : argv[::optind - 1];
    if (NeedsValue(::optopt)) {
        throw UsageException("option '" + word + "' needs a value; see --help");
    }
    throw UsageException("invalid option '" + word + "'; see --help");
}

void Apply(int parsed, char** argv, AnalyzeOptions& options) {
    switch (parsed) {
        case kHelp:
            options.command = AnalyzeCommand::kHelp;
            break;
        case kProfile:
            options.profile = ::optarg;
            break;
        case kBoot:
            options.block = ParseBlock(::optarg);
            break;
        case kPluginDirectory:
            options.plugin_directory = ::optarg;
            break;
        case kOutput:
            options.output = ::optarg;
            break;
        case kAround:
            options.around = ::optarg;
            break;
        case kThreads:
            options.what_if.threads = ParseThreads(::optarg);
            break;
        case kWithout:
            options.what_if.without.emplace_back(::optarg);
            break;
        case kTime:
            options.what_if.times.push_back(ParseTime(::optarg));
            break;
        case kJson:
            options.json = true;
            break;
        case kStrict:
            options.strict = true;
            break;
        default:
            Refuse(argv);
    }
}

/// The words that are no options: a command, and what some of them are about.
void ApplyWords(const std::vector<std::string>& words, AnalyzeOptions& options) {
    if (words.empty()) {
        return;
    }
    options.command = ParseCommand(words[0]);
    if (options.command == AnalyzeCommand::kVerify) {
        options.files.assign(words.begin() + 1, words.end());
        return;
    }
    std::size_t used = 1;
    if (options.command == AnalyzeCommand::kCriticalChain && words.size() > used) {
        options.plugin = words[used++];
    } else if (options.command == AnalyzeCommand::kDiff) {
        if (words.size() < 3) {
            throw UsageException("diff takes two profiles, the old one first; see --help");
        }
        options.profile = words[used++];
        options.newer_profile = words[used++];
    }
    if (words.size() > used) {
        throw UsageException("a word too many: '" + words[used] + "'; see --help");
    }
}

const char* NameOf(Option letter) {
    return std::find_if(kLongOptions.begin(), kLongOptions.end(),
                        [letter](const option& known) { return known.val == letter; })
        ->name;
}

std::string_view NameOf(AnalyzeCommand command) {
    return std::find_if(kCommands.begin(), kCommands.end(),
                        [command](const auto& known) { return known.second == command; })
        ->first;
}

/// Refuses options, as they were parsed, that the command has no use for.
void CheckUse(const std::vector<int>& parsed, const AnalyzeOptions& options) {
    for (const auto& [letter, command] : kOnlyFor) {
        if (options.command != command && std::count(parsed.begin(), parsed.end(), letter) > 0) {
            throw UsageException("option '--" + std::string(NameOf(letter)) + "' is for " +
                                 std::string(NameOf(command)) + "; see --help");
        }
    }
    if (options.json && options.command == AnalyzeCommand::kPlot) {
        throw UsageException("plot writes a picture, not JSON; see --help");
    }
}

}  // namespace

AnalyzeOptions ParseAnalyzeOptions(int argc, char** argv) {
    AnalyzeOptions options;
    ::optind = 0;  // 0, not 1: the GNU library then forgets an earlier command line altogether
    ::opterr = 0;  // what is wrong is said here
    int parsed = 0;
    std::vector<int> all;
    const std::string letters = Letters();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread exists yet
    while ((parsed = ::getopt_long(argc, argv, letters.c_str(), kLongOptions.data(), nullptr)) != -1) {
        Apply(parsed, argv, options);
        if (options.command == AnalyzeCommand::kHelp) {
            return options;
        }
        all.push_back(parsed);
    }
    ApplyWords(std::vector<std::string>(argv + ::optind, argv + argc), options);
    CheckUse(all, options);
    return options;
}

}  // namespace bootweave
