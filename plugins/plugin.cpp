// SPDX-License-Identifier: Apache-2.0
#include "plugins/plugin.h"

#include <utility>

#include "platform/log.h"
#include "plugins/console.h"
#include "plugins/host_profile.h"
#include "util/exception.h"
#include "util/kernel_log.h"

namespace bootweave {
namespace {

timeval Now() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return now;
}

}  // namespace

Plugin::ScopedRunTime::ScopedRunTime(Plugin& plugin) : plugin_(plugin) {
    plugin_.start_time_ = Now();
}
Plugin::ScopedRunTime::~ScopedRunTime() {
    plugin_.end_time_ = Now();
}

void Plugin::Execute() {
    start_time_ = Now();
    const auto config = RunConfig::Instance();
    if (config->interactive && AskBeforePlugin(name(), *config) == ConsoleAnswer::kSkip) {
        return;
    }
    const char* plugin = name().c_str();
    if (config->trace) {
        Log_Level(5, "starting execution of plugin: %s\n", plugin);
    }
    KernelLog("Activating Bootweave plugin %s.", plugin);
    std::optional<std::string> failure;
    if (config->method.empty()) {
        failure = RunFittingMethod();
    } else if (!InvokeMethod(config->method)) {
        failure = "Method invocation failed";
    }
    end_time_ = Now();
    if (config->trace) {
        Log_Level(5, "completed execution of plugin: %s (took %lld us)\n", plugin,
                  static_cast<long long>(elapsed_microseconds()));
    }
    if (failure.has_value()) {
        KernelLog("Bootweave plugin %s activation failed: %s", plugin, failure->c_str());
    } else {
        KernelLog("Bootweave plugin %s activated.", plugin);
    }
}

/// \return why it failed, or nothing
std::optional<std::string> Plugin::RunFittingMethod() {
    const char* plugin = name().c_str();
    try {
        if (SupportsHostProfile() && HostProfile::Instance().Present()) {
            Log_Level(5, "executing host profile plugin: %s\n", plugin);
            ApplyHostProfile();
        } else {
            Log_Level(5, "executing start plugin: %s\n", plugin);
            Start();
        }
        return std::nullopt;
    } catch (const MethodFailedException& error) {
        Log_Level(2, "Method invocation failed: %s\n", error.what());
        return error.what();
    } catch (const std::exception& error) {
        Log_Level(2, "unhandled exception whilst processing %s: %s\n", plugin, error.what());
        return error.what();
    } catch (...) {
        Log_Level(2, "ignoring unknown exception whilst processing %s ...\n", plugin);
        return "unknown exception";
    }
}

/// An identifier that no kind of plugin knows is a silent success: not every plugin has every method.
bool Plugin::InvokeMethod(const std::string& method) {
    const char* plugin = name().c_str();
    try {
        if (method == kStartMethod) {
            Log_Level(5, "executing start plugin: %s\n", plugin);
            Start();
        } else if (method == kApplyHostProfileMethod) {
            Log_Level(5, "executing host profile plugin: %s\n", plugin);
            ApplyHostProfile();
        }
        return true;
    } catch (const MethodFailedException& error) {
        Log_Level(2, "Method invocation failed: %s\n", error.what());
    } catch (const std::exception& error) {
        Log_Level(2, "unable to invoke method '%s' on plugin '%s': %s\n", method.c_str(), plugin,
                  error.what());
    } catch (...) {
        Log_Level(2, "unknown exception whilst attempting to execute method '%s' on plugin '%s'\n",
                  method.c_str(), plugin);
    }
    return false;
}

void Plugin::LinkIntoGraph(BarrierRegistry& registry) {
    for (const std::string& barrier : std::exchange(requires_, {})) {
        AddDependency(*registry.Find(barrier, true));
    }
    for (const std::string& barrier : std::exchange(provides_, {})) {
        AddDependent(*registry.Find(barrier, true));
    }
}

std::int64_t Plugin::elapsed_microseconds() const {
    constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
    return (end_time_.tv_sec - start_time_.tv_sec) * kMicrosecondsPerSecond +
           (end_time_.tv_usec - start_time_.tv_usec);
}

}  // namespace bootweave
