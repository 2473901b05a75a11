// SPDX-License-Identifier: Apache-2.0
#include "driver/driver.h"

#include <csignal>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "driver/discovery.h"
#include "driver/logging_setup.h"
#include "driver/options.h"
#include "driver/profiling_log.h"
#include "driver/run_once_record.h"
#include "driver/service_launcher.h"
#include "driver/syslog_reload.h"
#include "driver/worker_count.h"
#include "graph/dot.h"
#include "graph/executor.h"
#include "graph/run_all.h"
#include "hostcli/executor_client.h"
#include "platform/config_store.h"
#include "platform/log.h"
#include "platform/progress_screen.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/process_lock.h"
#include "util/run_config.h"
#include "util/standard_streams.h"

namespace bootweave {
namespace {

constexpr const char* kIdentifier = "bootweave";
constexpr const char* kLogRelay = "/usr/lib/corvane/logrelay/bin/logrelayd";
constexpr const char* kEventDaemon = "/etc/init.d/obsvd";
/// A host that boots without a disk of its own marks itself with this file, and boots serially.
constexpr const char* kStatelessMark = "/stateless.tgz";

/// One run. The steps are called in their order, once each, on the main thread.
class Driver {
  public:
    Driver(DriverOptions options, RunConfig& config, const timeval& start_time, std::uint64_t uptime_seconds)
        : options_(std::move(options)),
          config_(config),
          discovery_(options_.plugin_flags, options_.run_once_names, config_, injections_) {
        profile_.start = start_time;
        profile_.uptime_seconds = uptime_seconds;
    }
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    int Run() {
        LaunchEarlyServices();
        if (!options_.daemon_mode && !StartExecutorProcess()) {
            return 1;
        }
        SettlePluginDirectory();
        LeaveCallersSession();
        CollectPlugins();
        discovery_.StopReading();
        LinkPlugins();
        DecideParallelism();
        const bool successful = options_.dump_requested ? Dump() : RunGraph();
        ::gettimeofday(&profile_.end, nullptr);
        WriteProfile();
        Finish();
        return successful ? 0 : 1;
    }

  private:
    void LaunchEarlyServices() const {
        if (options_.init_mode) {
            RunService(kLogRelay, {"-i"});
            RunService(kEventDaemon, {"start"});
        }
    }

    static bool StartExecutorProcess() {
        Log_Level(5, "Launching Executor\n");
        try {
            const auto executor = HostcliExecutor::Instance();
            const ProcessLockGuard lock;
            executor->Reset();
            return true;
        } catch (const std::exception& error) {
            Log_Level(3, "Failed to start executor %s\n", error.what());
        } catch (...) {
            Log_Level(3, "Failed to start executor\n");
        }
        return false;
    }

    /// Relative to where the program was started, so before the working directory changes. Links stay links.
    void SettlePluginDirectory() {
        const std::filesystem::path given(options_.plugin_directory);
        if (given.empty()) {
            config_.plugin_directory = std::filesystem::current_path().string();
        } else {
            config_.plugin_directory = std::filesystem::absolute(given).string();
        }
    }

    static void LeaveCallersSession() {
        if (::chdir("/") != 0) {
            Log_Level(5, "unable to change filesystem root: %s.\n", LastErrorText().c_str());
        }
        if (::setsid() < 0) {
            Log_Level(5, "unable to create session: %s.\n", LastErrorText().c_str());
        }
    }

    void CollectPlugins() {
        if (options_.daemon_mode) {
            discovery_.CollectDaemons();
            return;
        }
        if (config_.invoke) {
            ReadRunOnceRecord(options_.run_once_names);
        }
        if (!options_.plugins.empty()) {
            for (const std::string& name : options_.plugins) {
                Discover(name);
            }
            return;
        }
        const std::vector<DebugInjection> injections = injections_.Load();  // as they are before the walk
        for (const auto& entry : std::filesystem::directory_iterator(config_.plugin_directory)) {
            Discover(entry.path().filename().string());
        }
        discovery_.CollectDebugPlugins(injections);
    }

    /// A file that cannot be loaded costs a line; the others are not its concern.
    void Discover(const std::string& file_name) {
        try {
            discovery_.Discover(file_name);
        } catch (const std::exception& error) {
            Log_Level(2, "%s\n", error.what());
        }
    }

    void LinkPlugins() {
        BarrierRegistry& barriers = BarrierRegistry::Instance();
        for (Plugin* plugin : discovery_.plugins()) {
            plugin->LinkIntoGraph(barriers);
        }
    }

    void DecideParallelism() {
        struct stat status {};
        if (::lstat(kStatelessMark, &status) == 0) {
            config_.parallel = false;
        } else if (config_.parallel) {
            config_.threads = ParallelWorkers(discovery_.plugins().size());
        }
    }

    /// \return whether the run went through; what its plugins did is in the log
    bool RunGraph() {
        Executor executor(static_cast<std::int32_t>(config_.threads), config_.randomize);
        const std::vector<Node*> nodes(discovery_.plugins().begin(), discovery_.plugins().end());
        if (!options_.daemon_mode) {
            ActivatePlugins(nodes, executor);
        } else if (config_.method == "stop") {
            RunAllReverse(nodes, executor);
        } else {
            RunAllForward(nodes, executor);
        }
        return true;
    }

    void ActivatePlugins(const std::vector<Node*>& nodes, Executor& executor) const {
        MantleCtl::System::KernelProgressScreenImpl screen;
        screen.ProgressText("Activating Bootweave Plugins");
        screen.StatusText("");
        RunAllForward(nodes, executor);
        WriteRunOnceRecord(options_.run_once_names);
    }

    /// Writes the graph instead of running it. \return whether all of it was written
    [[nodiscard]] bool Dump() const {
        const std::vector<const Node*> nodes(discovery_.plugins().begin(), discovery_.plugins().end());
        if (!options_.dump_path.has_value()) {
            WriteDot(std::cout, nodes, BarrierRegistry::Instance());
            return std::cout.good();
        }
        std::ofstream file(*options_.dump_path, std::ios::out | std::ios::trunc);
        if (!file.is_open()) {
            return false;
        }
        WriteDot(file, nodes, BarrierRegistry::Instance());
        file.close();
        return file.good();
    }

    void WriteProfile() {
        profile_.plugins.assign(discovery_.plugins().begin(), discovery_.plugins().end());
        if (options_.daemon_mode) {
            AppendDaemonProfile(profile_, config_);
        } else if (!config_.invoke) {
            WriteBootProfile(profile_, config_);
        }
    }

    void Finish() const {
        if (options_.init_mode) {
            ReloadSystemLog();
        }
        if (options_.daemon_mode) {
            return;
        }
        HostcliExecutor::Instance()->Stop();
        StrataConfigStore::EndAutoConf();
        StrataConfigStore::CleanupBootState();
    }

    DriverOptions options_;
    RunConfig& config_;
    DebugInjections injections_;
    Discovery discovery_;
    RunProfile profile_;
};

/// Seconds since the host booted.
std::uint64_t Uptime() {
    timespec uptime{};
    ::clock_gettime(CLOCK_BOOTTIME, &uptime);
    return static_cast<std::uint64_t>(uptime.tv_sec);
}

int ParseAndRun(int argc, char** argv, const timeval& start_time, std::uint64_t uptime_seconds) {
    const auto config = RunConfig::Instance();
    auto parsed = ParseOptions(argc, argv, *config);
    if (const auto* early = std::get_if<EarlyExit>(&parsed)) {
        return early->status;
    }
    return Driver(std::get<DriverOptions>(std::move(parsed)), *config, start_time, uptime_seconds).Run();
}

}  // namespace

int RunBootweave(int argc, char** argv) {
    EnsureStandardDescriptors();
    timeval start_time{};
    ::gettimeofday(&start_time, nullptr);
    const std::uint64_t uptime_seconds = Uptime();
    // Whoever starts this program may ignore child signals; waiting for a child would then never see its
    // status.
    ::signal(SIGCHLD, SIG_DFL);
    SetUpLogging(kIdentifier);
    try {
        return ParseAndRun(argc, argv, start_time, uptime_seconds);
    } catch (const std::exception& error) {
        Log_Level(3, "Failed to initialize bootweave: %s\n", error.what());
    } catch (...) {
        Log_Level(3, "Failed to initialize bootweave\n");
    }
    return 1;
}

}  // namespace bootweave
