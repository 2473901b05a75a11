// SPDX-License-Identifier: Apache-2.0
#include "plugins/daemon_plugin.h"

#include <exception>

#include "platform/log.h"
#include "platform/progress_screen.h"
#include "plugins/fork_exec.h"
#include "util/exception.h"
#include "util/kernel_log.h"

namespace bootweave {
namespace {

constexpr std::int32_t kStarted = 2;
constexpr std::int32_t kStopped = 12;
constexpr std::int32_t kStartFailed = 20;

constexpr std::uint32_t kLegacyKind = 3;

}  // namespace

DaemonPlugin::DaemonPlugin(const std::string& name, std::int32_t priority, std::uint32_t kind)
    : Plugin(name, kind), start_priority_(priority) {}

void DaemonPlugin::Execute() {
    MantleCtl::System::KernelProgressScreenImpl screen;
    screen.ProgressText("Starting service " + name());
    Plugin::Execute();
    screen.Step();
}

const std::string& DaemonPlugin::Operation(int code) const {
    const auto found = operations_.find(code);
    if (found == operations_.end()) {
        throw Exception(name() + " Daemon operations are not initialized");
    }
    return found->second;
}

void DaemonPlugin::Start() {
    try {
        ForkExec(name(), Operation(kStartOperation));
    } catch (const std::exception& error) {
        daemon_state_ = kStartFailed;
        Log_Level(3, "Bootweave failed to start: %s reason: %s\n", name().c_str(), error.what());
        throw MethodFailedException(kStartMethod, name(), error.what());
    }
    daemon_state_ = kStarted;
    Log_Level(5, "%s started.\n", name().c_str());
}

void DaemonPlugin::Stop() {
    try {
        ForkExec(name(), Operation(kStopOperation));
    } catch (const std::exception& error) {
        Log_Level(3, "Bootweave failed to stop: %s reason: %s\n", name().c_str(), error.what());
        throw;
    }
    daemon_state_ = kStopped;
    Log_Level(5, "%s stopped.\n", name().c_str());
}

void DaemonPlugin::Deactivate() {
    const ScopedRunTime run_time(*this);
    KernelLog("Deactivating Daemon %s.", name().c_str());
    Log_Level(5, "executing stop for daemon %s.\n", name().c_str());
    try {
        Stop();
        KernelLog("Daemon %s deactivated.", name().c_str());
    } catch (const std::exception& error) {
        KernelLog("Daemon %s deactivation failed: %s", name().c_str(), error.what());
    }
}

void DaemonPlugin::ApplyHostProfile() {
    throw NotImplementedException("DaemonPlugin::ApplyHostProfile");
}
void DaemonPlugin::Restart() {
    throw NotImplementedException("DaemonPlugin::Restart");
}
void DaemonPlugin::SSLReset() {
    throw NotImplementedException("DaemonPlugin::SSLReset");
}

LegacyDaemonPlugin::LegacyDaemonPlugin(const std::string& name, const std::string& script_path,
                                       std::int32_t priority)
    : DaemonPlugin(name, priority, kLegacyKind) {
    const ProcessLockGuard lock;
    PriorityBarrier& barrier = BarrierRegistry::Instance().Priority(static_cast<std::uint32_t>(priority));
    operations_[kStartOperation] = script_path + " ++group=init/" + name + " start";
    operations_[kStopOperation] =
        script_path + " stop";  // without a group: what stops a daemon is none of it
    barrier.Attach(*this);
}

void LegacyDaemonPlugin::ApplyHostProfile() {
    throw NotImplementedException("LegacyDaemonPlugin::ApplyHostProfile");
}

}  // namespace bootweave
