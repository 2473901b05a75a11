// SPDX-License-Identifier: Apache-2.0
#include "driver/options.h"

#include <array>
#include <cstdio>
#include <string>

#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/tokenizer.hpp>

#include <getopt.h>

#include "driver/help_text.h"
#include "platform/log.h"

namespace bootweave {
namespace {

enum Option : int {
    kHelp = 'h',
    kInit = 256,
    kPluginFlags,
    kTrace,
    kInvoke,
    kMethod,
    kPlugin,
    kVerbose,
    kParallel,
    kRandomize,
    kRunOnce,
    kInteractive,
    kDisablePlugins,
    kPluginDirectory,
    kDumpDependencyTree,
    kInteractiveModeRequires,
    kDaemon,
    kDaemonWaitTimeout,
};

constexpr std::array kLongOptions{
    option{"help", no_argument, nullptr, kHelp},
    option{"init", no_argument, nullptr, kInit},
    option{"plugin-flags", required_argument, nullptr, kPluginFlags},
    option{"trace", no_argument, nullptr, kTrace},
    option{"invoke", no_argument, nullptr, kInvoke},
    option{"method", required_argument, nullptr, kMethod},
    option{"plugin", required_argument, nullptr, kPlugin},
    option{"verbose", no_argument, nullptr, kVerbose},
    option{"parallel", no_argument, nullptr, kParallel},
    option{"randomize", optional_argument, nullptr, kRandomize},
    option{"run-once", required_argument, nullptr, kRunOnce},
    option{"interactive", no_argument, nullptr, kInteractive},
    option{"disable-plugins", required_argument, nullptr, kDisablePlugins},
    option{"plugin-directory", required_argument, nullptr, kPluginDirectory},
    option{"dump-dependency-tree", optional_argument, nullptr, kDumpDependencyTree},
    option{"interactive-mode-requires", required_argument, nullptr, kInteractiveModeRequires},
    option{"daemon", optional_argument, nullptr, kDaemon},
    option{"daemon-wait-timeout", required_argument, nullptr, kDaemonWaitTimeout},
    option{nullptr, 0, nullptr, 0},
};

std::list<std::string> SplitCommaList(const std::string& text) {
    const boost::char_separator<char> comma(",");
    const boost::tokenizer<boost::char_separator<char>> items(text, comma);
    return {items.begin(), items.end()};
}

void Append(std::list<std::string>& list, const char* argument) {
    list.splice(list.end(), SplitCommaList(argument));
}

/// Stores a number; a text that is none leaves the value alone, without a word.
template <typename Number, typename Value>
void StoreNumber(const char* argument, Value& value) {
    Number number{};
    if (boost::conversion::try_lexical_convert(argument, number)) {
        value = number;
    }
}

void ApplyRandomize(const char* seed, RunConfig& config) {
    config.randomize = true;
    if (seed != nullptr) {
        StoreNumber<std::int32_t>(seed, config.seed);
    }
}

void ApplyDaemon(const char* wait, DriverOptions& options, RunConfig& config) {
    options.daemon_mode = true;
    if (wait != nullptr) {
        config.daemon_wait = std::string_view(wait) == "wait";
    }
}

void ApplyDump(const char* path, DriverOptions& options) {
    options.dump_requested = true;
    if (path != nullptr) {
        options.dump_path = path;
    }
}

void ApplyPluginFlags(const char* flags, DriverOptions& options) {
    const std::list<std::string> items = SplitCommaList(flags);
    options.plugin_flags = {items.begin(), items.end()};
}

void ApplyRunOnce(const char* names, DriverOptions& options) {
    const std::list<std::string> items = SplitCommaList(names);
    options.run_once_names.insert(items.begin(), items.end());
}

/// Parallel and interactive cancel each other: the last one counts.
void ChooseParallel(bool parallel, RunConfig& config) {
    config.parallel = parallel;
    config.interactive = !parallel;
}

void Apply(int parsed, const char* argument, DriverOptions& options, RunConfig& config) {
    switch (parsed) {
        case kInit:
            options.init_mode = true;
            break;
        case kPluginFlags:
            ApplyPluginFlags(argument, options);
            break;
        case kTrace:
            config.trace = true;
            break;
        case kInvoke:
            config.invoke = true;
            break;
        case kMethod:
            config.method = argument;
            break;
        case kPlugin:
            Append(options.plugins, argument);
            break;
        case kVerbose:
            config.verbose = true;
            break;
        case kParallel:
            ChooseParallel(true, config);
            break;
        case kRandomize:
            ApplyRandomize(argument, config);
            break;
        case kRunOnce:
            ApplyRunOnce(argument, options);
            break;
        case kInteractive:
            ChooseParallel(false, config);
            break;
        case kDisablePlugins:
            Append(config.disabled_plugins, argument);
            break;
        case kPluginDirectory:
            options.plugin_directory = argument;
            break;
        case kDumpDependencyTree:
            ApplyDump(argument, options);
            break;
        case kInteractiveModeRequires:
            Append(config.interactive_mode_requires, argument);
            break;
        case kDaemon:
            ApplyDaemon(argument, options, config);
            break;
        case kDaemonWaitTimeout:
            StoreNumber<std::uint32_t>(argument, config.daemon_wait_timeout);
            break;
        default:
            break;
    }
}

EarlyExit PrintHelp(int status) {
    std::fputs(kHelpText, stdout);
    return {status};
}

bool IsDaemonRequestValid(const DriverOptions& options, const RunConfig& config) {
    return !config.interactive && !config.invoke && !options.init_mode && options.plugins.empty() &&
           (config.method == "start" || config.method == "stop");
}

std::optional<EarlyExit> CheckCombination(const DriverOptions& options, const RunConfig& config) {
    if (options.daemon_mode) {
        if (!IsDaemonRequestValid(options, config)) {
            Log_Level(2, "Invalid combination of options passed. Exiting\n");
            return EarlyExit{1};
        }
    } else if (config.invoke && (config.method.empty() || options.plugins.empty())) {
        Log_Level(2, "invoke requires a method and plugin specified\n");
        return PrintHelp(1);
    }
    return std::nullopt;
}

}  // namespace

std::variant<DriverOptions, EarlyExit> ParseOptions(int argc, char** argv, RunConfig& config) {
    DriverOptions options;
    ::optind = 0;  // 0, not 1: the GNU library then forgets an earlier command line altogether
    int parsed = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread exists yet
    while ((parsed = ::getopt_long(argc, argv, "h", kLongOptions.data(), nullptr)) != -1) {
        if (parsed == kHelp) {
            return PrintHelp(0);
        }
        if (parsed == '?') {
            std::fprintf(stderr, "usage: %s --help for usage information\n", argv[0]);
            return EarlyExit{1};
        }
        Apply(parsed, ::optarg, options, config);
    }
    if (const auto early = CheckCombination(options, config)) {
        return *early;
    }
    return options;
}

}  // namespace bootweave
