// SPDX-License-Identifier: Apache-2.0
#include "driver/profiling_log.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>

#include <sys/stat.h>

#include "platform/log.h"
#include "util/afstream.h"
#include "util/error_text.h"
#include "util/harmless_text.h"

namespace bootweave {
namespace {

using Open = void (afstream::*)(const char*, std::ios_base::openmode);

void LogNotOpened(const char* verb, const std::string& path, int error) {
    Log_Level(2, "unable to %s profiling log (%s): %s.\n", verb, path.c_str(), ErrorText(error).c_str());
}

/// Opens the log, or says why not. Both a raised error and a bad stream count; errno then holds the reason.
/// After a success it holds none, so that a later one is that of a write.
bool OpenLog(afstream& out, Open open, const char* verb, const std::string& path) {
    try {
        (out.*open)(path.c_str(), std::ios::out);
        if (out.good()) {
            errno = 0;  // from here on it is the first failure to write
            return true;
        }
    } catch (const std::exception&) {  // errno says it; the line below has a text of its own
    }
    LogNotOpened(verb, path, errno);
    return false;
}

/// Whether something that is no file stands in the log's place: reading a FIFO could last for ever, and a
/// device may never end.
bool IsSpecial(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

/// Puts the log in place, but only when all of it was written: a full file system must not cost the old one.
void CommitLog(afstream& out, const std::string& path) {
    if (!out.flush().good()) {
        Log_Level(2, "unable to write profiling log (%s): %s.\n", path.c_str(), LastErrorText().c_str());
        return;
    }
    out.commit();
}

void WritePlugins(std::ostream& out, const std::vector<const Plugin*>& plugins, const char* kind) {
    for (const Plugin* plugin : plugins) {
        LineBuffer name;
        AppendHarmless(name, plugin->name());  // a newline in it must not forge a line
        out << "[" << FormatTimeStamp(plugin->start_time()) << " - " << FormatTimeStamp(plugin->end_time())
            << "] " << kind << ": " << name.view() << "\n";
    }
}

/// With zeros in front. printf takes four times as long, and there are two stamps for each plugin.
void AppendDigits(std::string& text, unsigned value, std::size_t digits) {
    text.append(digits, '0');
    for (auto place = text.rbegin(); value > 0; ++place, value /= 10) {
        *place = static_cast<char>('0' + value % 10);
    }
}

void WriteSettings(std::ostream& out, const RunConfig& config) {
    out << " Verbose: " << config.verbose << "\n"
        << " Parallel: " << config.parallel << "\n"
        << " Randomize: " << config.randomize << "\n"
        << " Interactive Mode: " << config.interactive << "\n"
        << " Random Seed: " << config.seed << "\n";
}

}  // namespace

// Calendar arithmetic of our own library: the C library's converts under a lock that a fork may leave held.
std::string FormatTimeStamp(const timeval& time) {
    using namespace std::chrono;
    constexpr sys_days kLastDay = 9999y / December / 31;
    constexpr std::int64_t kLastSecond = (kLastDay.time_since_epoch() + days(1)) / seconds(1) - 1;
    const sys_seconds instant{seconds(std::clamp<std::int64_t>(time.tv_sec, 0, kLastSecond))};
    const auto day = floor<days>(instant);
    const year_month_day date(day);
    const hh_mm_ss clock(instant - day);
    std::string text;
    AppendDigits(text, static_cast<unsigned>(static_cast<int>(date.year())), 4);
    AppendDigits(text.append("-"), static_cast<unsigned>(date.month()), 2);
    AppendDigits(text.append("-"), static_cast<unsigned>(date.day()), 2);
    AppendDigits(text.append(" "), static_cast<unsigned>(clock.hours().count()), 2);
    AppendDigits(text.append(":"), static_cast<unsigned>(clock.minutes().count()), 2);
    AppendDigits(text.append(":"), static_cast<unsigned>(clock.seconds().count()), 2);
    AppendDigits(text.append("."), static_cast<unsigned>(std::clamp<std::int64_t>(time.tv_usec, 0, 999'999)),
                 6);
    return text;
}

void WriteBootProfile(const RunProfile& run, const RunConfig& config, const std::string& path) {
    constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
    afstream out;
    if (!OpenLog(out, &afstream::open, "open", path)) {
        return;
    }
    out << "Mantle Initialization Time: " << run.uptime_seconds * kMicrosecondsPerSecond << "\n";
    WritePlugins(out, run.plugins, "sysboot");
    out << "=== Bootweave configuration info ===\n"
        << " Start: " << FormatTimeStamp(run.start) << "\n"
        << " End: " << FormatTimeStamp(run.end) << "\n";
    WriteSettings(out, config);
    CommitLog(out, path);
}

void AppendDaemonProfile(const RunProfile& run, const RunConfig& config, const std::string& path) {
    constexpr const char* kVerb = "reopen";
    if (IsSpecial(path)) {
        LogNotOpened(kVerb, path, ENOENT);
        return;
    }
    afstream out;
    if (!OpenLog(out, &afstream::reopen, kVerb, path)) {
        return;
    }
    WritePlugins(out, run.plugins, "daemon");
    out << "=== Daemon configuration info ===\n"
        << " Start Daemon: " << FormatTimeStamp(run.start) << "\n"
        << " End Daemon: " << FormatTimeStamp(run.end) << "\n";
    WriteSettings(out, config);
    CommitLog(out, path);
}

}  // namespace bootweave
