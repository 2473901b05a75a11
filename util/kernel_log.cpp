// SPDX-License-Identifier: Apache-2.0
#include "util/kernel_log.h"

#include <cstdarg>
#include <cstdlib>
#include <memory>

#include "platform/log.h"
#include "platform/str.h"
#include "platform/sysinfo.h"

namespace bootweave {
namespace {

constexpr int kSyslogError = 3;

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

__attribute__((format(printf, 1, 0))) Text Format(const char* format, std::va_list arguments) {
    return Text(Str_SafeVasprintf(nullptr, format, arguments));
}

}  // namespace

void KernelLog(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const Text text = Format(format, arguments);
    va_end(arguments);
    try {
        MantleCtl::Util::Sysinfo node(KSI_NODE_system_log);
        node.AddInput(text.get());
        node.Set();
    } catch (const Hostrig::Lib::HostrigException& error) {
        Log_Syslog(kSyslogError, "Exception occurred while logging msg: %s", error.what());
        Log_Syslog(kSyslogError, "%s", text.get());
    } catch (...) {
        Log_Syslog(kSyslogError, "Unexpected exception while logging msg");
        Log_Syslog(kSyslogError, "%s", text.get());
    }
}

}  // namespace bootweave
