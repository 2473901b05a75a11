// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fake_platform.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <pthread.h>
#include <unistd.h>

#include "platform/config_store.h"
#include "platform/log.h"
#include "platform/processors.h"
#include "platform/product_state.h"
#include "platform/progress_screen.h"
#include "platform/str.h"
#include "platform/sysinfo.h"
#include "platform/system_alert.h"
#include "util/retry.h"
#include "util/scope_guard.h"

struct Dictionary {
    std::map<std::string, std::string> values;
};
struct LogOutput {};

namespace bootweave {
namespace {

struct Captured {
    std::vector<LogMessage> log;
    std::vector<std::string> kernel_log;
    std::vector<LogMessage> syslog;
    std::vector<std::string> alerts;
    std::vector<std::string> screen;
    std::vector<std::string> calls;
    FakePlatform::KernelLogFailure kernel_log_failure = FakePlatform::KernelLogFailure::kNone;
    std::string kernel_log_failure_text;
    std::string failing_setup_call;
    std::uint32_t processors = 1;
    int echo = -1;
};

/// Raised for KernelLogFailure::kOther: no relation of any exception class.
struct OtherFailure {
    std::string text;
};

std::mutex& Mutex() {
    // Never destroyed: threads of a test may log until the process ends.
    static auto* const mutex = std::make_unique<std::mutex>().release();
    return *mutex;
}

/// The state and the lock on it. A fork waits until the lock is free, so that the child finds it free too.
class State {
  public:
    State() : lock_((ForkSafe(), Mutex())) {}
    Captured* operator->() const { return &Data(); }
    Captured& operator*() const { return Data(); }

  private:
    static Captured& Data() {
        static auto* const captured = std::make_unique<Captured>().release();
        return *captured;
    }
    static void ForkSafe() {
        static const int registered =
            pthread_atfork([] { Mutex().lock(); }, [] { Mutex().unlock(); }, [] { Mutex().unlock(); });
        static_cast<void>(registered);
    }

    std::lock_guard<std::mutex> lock_;
};

/// Writes one line at once, so that lines of several processes never mix.
void Echo(int descriptor, std::string line) {
    if (descriptor < 0) {
        return;
    }
    if (!line.ends_with('\n')) {
        line += '\n';
    }
    static_cast<void>(RetryOnEintr([&] { return ::write(descriptor, line.data(), line.size()); }));
}

__attribute__((format(printf, 1, 0))) std::string Format(const char* format, std::va_list arguments) {
    const std::unique_ptr<char, void (*)(void*)> text(Str_SafeVasprintf(nullptr, format, arguments),
                                                      std::free);
    return text.get();
}

void CaptureLog(int level, const std::string& text) {
    int echo = -1;
    {
        const State state;
        state->log.push_back({level, text});
        echo = state->echo;
    }
    Echo(echo, std::to_string(level) + " " + text);
}

/// Captures a text into one of the lists and echoes it behind `label`.
void Capture(std::vector<std::string> Captured::*list, const char* label, const std::string& text) {
    int echo = -1;
    {
        const State state;
        ((*state).*list).push_back(text);
        echo = state->echo;
    }
    Echo(echo, std::string(label) + " " + text);
}

std::string Show(const Dictionary* dictionary) {
    if (dictionary == nullptr) {
        return "null";
    }
    std::string text;
    for (const auto& [key, value] : dictionary->values) {
        text += (text.empty() ? "" : ", ") + key + "=" + value;
    }
    return "{" + text + "}";
}

std::string Show(const char* text) {
    return text == nullptr ? "null" : text;
}

/// Notes a call; false when it is the one that has to fail.
bool Call(const std::string& name, const std::string& arguments) {
    const State state;
    state->calls.push_back(name + "(" + arguments + ")");
    return state->failing_setup_call != name;
}

}  // namespace

void FakePlatform::Reset() {
    *State() = Captured();
}

std::vector<LogMessage> FakePlatform::log() {
    return State()->log;
}
std::vector<std::string> FakePlatform::kernel_log() {
    return State()->kernel_log;
}
std::vector<LogMessage> FakePlatform::syslog() {
    return State()->syslog;
}
std::vector<std::string> FakePlatform::alerts() {
    return State()->alerts;
}
std::vector<std::string> FakePlatform::screen() {
    return State()->screen;
}
std::vector<std::string> FakePlatform::calls() {
    return State()->calls;
}

void FakePlatform::FailKernelLog(KernelLogFailure failure, const std::string& text) {
    const State state;
    state->kernel_log_failure = failure;
    state->kernel_log_failure_text = text;
}

void FakePlatform::FailLogSetup(const std::string& call) {
    State()->failing_setup_call = call;
}
void FakePlatform::SetProcessorCount(std::uint32_t count) {
    State()->processors = count;
}
void FakePlatform::EchoTo(int descriptor) {
    State()->echo = descriptor;
}

}  // namespace bootweave

using bootweave::Call;
using bootweave::Capture;
using bootweave::Captured;
using bootweave::Show;
using bootweave::State;

// Logging.

Dictionary* Dictionary_Create() {
    Call("Dictionary_Create", "");
    return std::make_unique<Dictionary>().release();
}

void Dict_SetString(Dictionary* dictionary, const char* key, const char* value) {
    Call("Dict_SetString", Show(key) + ", " + Show(value));
    dictionary->values[key] = value;
}

void Dict_SetBool(Dictionary* dictionary, const char* key, bool value) {
    Call("Dict_SetBool", Show(key) + ", " + (value ? "true" : "false"));
    dictionary->values[key] = value ? "true" : "false";
}

void Dictionary_Clear(Dictionary* dictionary) {
    Call("Dictionary_Clear", "");
    dictionary->values.clear();
}

void Dictionary_Free(Dictionary* dictionary) {
    Call("Dictionary_Free", "");
    const std::unique_ptr<Dictionary> owned(dictionary);
}

void Log_SetProductInfo(const char* name, const char* version, const char* build_number,
                        const char* compilation_option) {
    Call("Log_SetProductInfo",
         Show(name) + ", " + Show(version) + ", " + Show(build_number) + ", " + Show(compilation_option));
}

bool Log_InitWithSyslogInt(const char* identifier, const Dictionary* dictionary, int flags) {
    return Call("Log_InitWithSyslogInt",
                Show(identifier) + ", " + Show(dictionary) + ", " + std::to_string(flags));
}

LogOutput* Log_NewStdioOutput(const char* identifier, const Dictionary* dictionary, int flags) {
    static LogOutput output;
    const bool made =
        Call("Log_NewStdioOutput", Show(identifier) + ", " + Show(dictionary) + ", " + std::to_string(flags));
    return made ? &output : nullptr;
}

bool Log_AddOutput(LogOutput* output) {
    return Call("Log_AddOutput", output == nullptr ? "null" : "stdio");
}

void Log_SetStderrLevel(LogOutput* output, int level) {
    Call("Log_SetStderrLevel",
         std::string(output == nullptr ? "null" : "stdio") + ", " + std::to_string(level));
}

void Log_Level(int level, const char* format, ...) {
    const bootweave::ScopeGuard keep_errno([saved = errno] { errno = saved; });
    std::va_list arguments;
    va_start(arguments, format);
    bootweave::CaptureLog(level, bootweave::Format(format, arguments));
    va_end(arguments);
}

void Warning(const char* format, ...) {
    const bootweave::ScopeGuard keep_errno([saved = errno] { errno = saved; });
    std::va_list arguments;
    va_start(arguments, format);
    bootweave::CaptureLog(3, bootweave::Format(format, arguments));
    va_end(arguments);
}

void Log_Syslog(int priority, const char* format, ...) {
    const bootweave::ScopeGuard keep_errno([saved = errno] { errno = saved; });
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = bootweave::Format(format, arguments);
    va_end(arguments);
    int echo = -1;
    {
        const State state;
        state->syslog.push_back({priority, text});
        echo = state->echo;
    }
    bootweave::Echo(echo, "syslog " + std::to_string(priority) + " " + text);
}

// Text, product and processors.

char* Str_SafeVasprintf(std::size_t* length, const char* format, std::va_list arguments) {
    char* text = nullptr;
    const int count = ::vasprintf(&text, format, arguments);
    if (count < 0) {
        std::abort();
    }
    if (length != nullptr) {
        *length = static_cast<std::size_t>(count);
    }
    return text;
}

const char* ProductState_GetName() {
    return "bootweave";
}
const char* ProductState_GetVersion() {
    return "9.8.7";
}
const char* ProductState_GetBuildNumberString() {
    return "build-6";
}
const char* ProductState_GetCompilationOption() {
    return "debug";
}

std::uint32_t Host_ProcessorCount() {
    return State()->processors;
}

// The kernel's log, alerts, the progress screen and the configuration store.

void MantleCtl::Util::Sysinfo::Set() {
    using Failure = bootweave::FakePlatform::KernelLogFailure;
    if (node_ != KSI_NODE_system_log) {
        throw Hostrig::Lib::HostrigException("the fake has no node " + std::to_string(node_));
    }
    Failure failure = Failure::kNone;
    std::string text;
    {
        const State state;
        failure = std::exchange(state->kernel_log_failure, Failure::kNone);
        text = std::exchange(state->kernel_log_failure_text, "");
    }
    if (failure == Failure::kHostException) {
        throw Hostrig::Lib::HostrigException(text);
    }
    if (failure == Failure::kOther) {
        throw bootweave::OtherFailure{text};
    }
    Capture(&Captured::kernel_log, "kernel", input_);
}

void MantleCtl::System::SystemInfoImpl::SetSystemAlert(const std::string& message) {
    Capture(&Captured::alerts, "alert", message);
}

void MantleCtl::System::KernelProgressScreenImpl::ProgressText(const std::string& text) {
    Capture(&Captured::screen, "screen", "progress: " + text);
}

void MantleCtl::System::KernelProgressScreenImpl::StatusText(const std::string& text) {
    Capture(&Captured::screen, "screen", "status: " + text);
}

void MantleCtl::System::KernelProgressScreenImpl::Step() {
    Capture(&Captured::screen, "screen", "step");
}

void StrataConfigStore::EndAutoConf() {
    Call("EndAutoConf", "");
}

void StrataConfigStore::CleanupBootState() {
    Call("CleanupBootState", "");
}
