// SPDX-License-Identifier: Apache-2.0
#include "analyze/options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <getopt.h>

#include "analyze/did_you_mean.h"
#include "analyze/field_text.h"

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

using CommandSet = unsigned;

constexpr CommandSet SetOf(std::initializer_list<AnalyzeCommand> commands) {
    CommandSet set = 0;
    for (const AnalyzeCommand command : commands) {
        set |= 1U << static_cast<unsigned>(command);
    }
    return set;
}

constexpr CommandSet kOfOneBlock =
    SetOf({AnalyzeCommand::kTime, AnalyzeCommand::kBlame, AnalyzeCommand::kCriticalChain,
           AnalyzeCommand::kPlot, AnalyzeCommand::kDot, AnalyzeCommand::kSimulate});

/// Options that do not make sense for all commands, and those for which they do.
constexpr std::array<std::pair<Option, CommandSet>, 9> kUses{
    {{kProfile, kOfOneBlock | SetOf({AnalyzeCommand::kList})},
     {kBoot, kOfOneBlock | SetOf({AnalyzeCommand::kDiff})},
     {kPluginDirectory, SetOf({AnalyzeCommand::kCriticalChain, AnalyzeCommand::kPlot, AnalyzeCommand::kDot,
                               AnalyzeCommand::kSimulate, AnalyzeCommand::kVerify})},
     {kOutput, SetOf({AnalyzeCommand::kPlot})},
     {kStrict, SetOf({AnalyzeCommand::kVerify})},
     {kAround, SetOf({AnalyzeCommand::kDot})},
     {kThreads, SetOf({AnalyzeCommand::kSimulate})},
     {kWithout, SetOf({AnalyzeCommand::kSimulate})},
     {kTime, SetOf({AnalyzeCommand::kSimulate})}}};

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

/// The value that getopt has found, for an option that takes a path.
std::string PathValue(char** argv) {
    if (*::optarg == '\0') {
        const bool is_apart = *argv[::optind - 1] == '\0';
        const std::string word = argv[::optind - (is_apart ? 2 : 1)];
        throw UsageException("option '" + word.substr(0, word.find('=')) + "' needs a value; see --help");
    }
    return ::optarg;
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
    return {FieldText(text.substr(0, equals)), std::chrono::milliseconds(*time)};
}

/// How a refused word could be put right, by the one that was most likely meant.
std::string Hint(std::string_view nearest) {
    return nearest.empty() ? "; see --help" : DidYouMean(nearest);
}

AnalyzeCommand ParseCommand(std::string_view word) {
    const auto* const found = std::find_if(kCommands.begin(), kCommands.end(),
                                           [word](const auto& entry) { return entry.first == word; });
    if (found == kCommands.end()) {
        std::vector<std::string_view> names(kCommands.size());
        std::transform(kCommands.begin(), kCommands.end(), names.begin(),
                       [](const auto& entry) { return entry.first; });
        throw UsageException("unknown command '" + std::string(word) + "'" + Hint(FindNearest(word, names)));
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

/// The option that was most likely meant by a word that begins with two hyphens; empty when none is near.
std::string NearestOption(std::string_view word) {
    constexpr std::string_view kHyphens = "--";
    if (!word.starts_with(kHyphens)) {
        return "";
    }
    std::vector<std::string_view> names;
    for (const option& known : kLongOptions) {
        if (known.name != nullptr) {
            names.emplace_back(known.name);
        }
    }
    const std::string_view name = word.substr(kHyphens.size());
    const std::string_view nearest = FindNearest(name.substr(0, name.find('=')), names);
    return nearest.empty() ? "" : std::string(kHyphens) + std::string(nearest);
}

/// Names the option that getopt has just refused, as it was typed. A letter may stand in a word with others.
[[noreturn]] void Refuse(char** argv) {
    const bool is_letter = ::optopt > 0 && ::optopt < kProfile && !IsKnownLetter(::optopt);
    const std::string word = is_letter ? std::string("-") + static_cast<char>(::optopt) : argv[::optind - 1];
    if (NeedsValue(::optopt)) {
        throw UsageException("option '" + word + "' needs a value; see --help");
    }
    throw UsageException("invalid option '" + word + "'" + Hint(NearestOption(word)));
}

void Apply(int parsed, char** argv, AnalyzeOptions& options) {
    switch (parsed) {
        case kHelp:
            options.command = AnalyzeCommand::kHelp;
            break;
        case kProfile:
            options.profile = PathValue(argv);
            break;
        case kBoot:
            options.block = ParseBlock(::optarg);
            break;
        case kPluginDirectory:
            options.plugin_directory = PathValue(argv);
            break;
        case kOutput:
            options.output = PathValue(argv);
            break;
        case kAround:
            options.around = FieldText(::optarg);
            break;
        case kThreads:
            options.what_if.threads = ParseThreads(::optarg);
            break;
        case kWithout:
            options.what_if.without.push_back(FieldText(::optarg));
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
        if (std::count(options.files.begin(), options.files.end(), "") > 0) {
            throw UsageException("verify takes files and directories, not ''; see --help");
        }
        return;
    }
    std::size_t used = 1;
    if (options.command == AnalyzeCommand::kCriticalChain && words.size() > used) {
        options.plugin = FieldText(words[used++]);
    } else if (options.command == AnalyzeCommand::kDiff) {
        if (words.size() < 3 || words[1].empty() || words[2].empty()) {
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

std::string NameOf(AnalyzeCommand command) {
    const auto* const found = std::find_if(kCommands.begin(), kCommands.end(),
                                           [command](const auto& known) { return known.second == command; });
    return std::string(found->first);
}

/// The only command of a set; nothing when it has several.
std::optional<AnalyzeCommand> OnlyOf(CommandSet set) {
    const auto* const found = std::find_if(kCommands.begin(), kCommands.end(),
                                           [set](const auto& known) { return SetOf({known.second}) == set; });
    return found == kCommands.end() ? std::nullopt : std::optional(found->second);
}

/// Refuses options, as they were parsed, that the command has no use for.
void CheckUse(const std::vector<int>& parsed, const AnalyzeOptions& options) {
    for (const auto& [letter, commands] : kUses) {
        if ((commands & SetOf({options.command})) != 0 ||
            std::count(parsed.begin(), parsed.end(), letter) == 0) {
            continue;
        }
        const std::string option = std::string("option '--") + NameOf(letter);
        if (const std::optional<AnalyzeCommand> only = OnlyOf(commands); only.has_value()) {
            throw UsageException(option + "' is for " + NameOf(*only) + "; see --help");
        }
        throw UsageException(option + "' is not for " + NameOf(options.command) + "; see --help");
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
