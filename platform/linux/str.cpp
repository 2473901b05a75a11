// SPDX-License-Identifier: Apache-2.0
#include "platform/str.h"

#include <cstdio>
#include <cstdlib>

#include <syslog.h>

#include "platform/log.h"
#include "util/error_text.h"

char* Str_SafeVasprintf(std::size_t* length, const char* format, std::va_list arguments) {
    char* text = nullptr;
    const int count = ::vasprintf(&text, format, arguments);
    if (count < 0) {
        Log_Syslog(LOG_CRIT, "Cannot format a message \"%s\": %s", format,
                   bootweave::LastErrorText().c_str());
        std::abort();
    }
    if (length != nullptr) {
        *length = static_cast<std::size_t>(count);
    }
    return text;
}
