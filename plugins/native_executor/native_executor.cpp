// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_executor/native_executor.h"

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include <bootweave/native_plugin.h>

#include "plugins/native_metadata.h"
#include "plugins/shared_object.h"

namespace bootweave {
namespace {

enum ExitCode { kSuccess = 0, kOperationFailed = 1, kWrongUsage = 2, kNotLoaded = 3, kNoOperation = 4 };

int Complain(ExitCode status, const std::string& why) {
    std::fprintf(stderr, "nativeExecutor: %s\n", why.c_str());
    return status;
}

std::optional<BootweavePluginEntry> EntryOf(std::string_view method) {
    if (method == "start") {
        return BOOTWEAVE_PLUGIN_START;
    }
    if (method == "apply_host_profile") {
        return BOOTWEAVE_PLUGIN_APPLY_HOST_PROFILE;
    }
    return std::nullopt;
}

const BootweavePluginOperation* LoadOperations(const char* path) {
    SharedObject object(path);
    static_cast<void>(object.Symbol("metadata"));  // what lacks it is no plugin
    const void* operations = object.Symbol("operations");
    object.Release();
    return static_cast<const BootweavePluginOperation*>(operations);
}

}  // namespace

int RunNativeExecutor(int argc, const char* const* argv) {
    if (argc != 4) {
        return Complain(kWrongUsage, "usage: nativeExecutor PATH NAME METHOD");
    }
    const char* path = argv[1];
    const char* name = argv[2];
    const char* method = argv[3];
    const std::optional<BootweavePluginEntry> entry = EntryOf(method);
    if (!entry.has_value()) {
        return Complain(kNoOperation, std::string(path) + ": unknown method " + method);
    }
    const BootweavePluginOperation* operations = nullptr;
    try {
        operations = LoadOperations(path);
    } catch (const std::exception& error) {
        return Complain(kNotLoaded, error.what());
    }
    if (operations == nullptr || operations[*entry] == nullptr) {
        return Complain(kNoOperation, NoOperationText(path, method));
    }
    return operations[*entry](name) == 0 ? kSuccess : kOperationFailed;
}

}  // namespace bootweave
