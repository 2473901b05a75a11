// SPDX-License-Identifier: Apache-2.0
#include "driver/logging_setup.h"

#include <cstdio>
#include <memory>

#include "platform/log.h"
#include "platform/product_state.h"

namespace bootweave {
namespace {

struct FreeDictionary {
    void operator()(Dictionary* dictionary) const { Dictionary_Free(dictionary); }
};

bool AddSystemLog(const char* identifier, Dictionary* dictionary) {
    Dict_SetString(dictionary, "log.syslogID", identifier);
    Dict_SetString(dictionary, "log.syslogLevel", "info");
    Log_SetProductInfo(ProductState_GetName(), ProductState_GetVersion(), ProductState_GetBuildNumberString(),
                       ProductState_GetCompilationOption());
    if (!Log_InitWithSyslogInt(identifier, dictionary, 0)) {
        std::fputs("Failed to initialize logging to syslog.\n", stderr);
        return false;
    }
    return true;
}

bool AddStandardOutput(const char* identifier, Dictionary* dictionary) {
    Dictionary_Clear(dictionary);
    Dict_SetString(dictionary, "log.stdoutLevel", "info");
    Dict_SetBool(dictionary, "log.useTimeStamps.stdio", true);
    Dict_SetBool(dictionary, "log.useMilliseconds.stdio", true);
    LogOutput* output = Log_NewStdioOutput(identifier, dictionary, 0);
    if (output == nullptr) {
        std::fputs("Failed creating standard out logging interface.\n", stderr);
        return false;
    }
    if (!Log_AddOutput(output)) {
        std::fputs("Failed adding standard out logging interface.\n", stderr);
        return false;
    }
    return true;
}

}  // namespace

void SetUpLogging(const char* identifier) {
    std::fflush(stdout);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    const std::unique_ptr<Dictionary, FreeDictionary> dictionary(Dictionary_Create());
    if (AddSystemLog(identifier, dictionary.get()) && AddStandardOutput(identifier, dictionary.get())) {
        Log_SetStderrLevel(nullptr, -1);
    }
}

}  // namespace bootweave
