// SPDX-License-Identifier: Apache-2.0
#include "hostcli/dispatcher.h"

#include <array>
#include <exception>

#include "platform/log.h"

namespace bootweave {
namespace {

/// In the order of look-up: the first directory that has a command answers it.
constexpr std::array kCommandDirectories{
    "/usr/lib/corvane/hostcli",
    "/usr/lib/corvane/hostcli/int",
    "/usr/lib/corvane/hostcli/int/ext",
    "/usr/lib/corvane/hostcli/ext",
};

// Not a static of the function below: its first call comes in a forked child, where registering a destructor
// could wait for a lock that another thread of the parent held.
constinit std::shared_ptr<HostcliDispatcher> g_instance;

}  // namespace

HostcliDispatcher::HostcliDispatcher() {
    for (const char* directory : kCommandDirectories) {
        try {
            AddExternalDirectory(directory);
        } catch (const std::exception& error) {
            Log_Level(2, "unable to add external directory to the hostcli dispatcher: %s\n", error.what());
        }
    }
}

std::shared_ptr<HostcliDispatcher> HostcliDispatcher::Instance() {
    if (g_instance == nullptr) {
        g_instance = std::make_shared<HostcliDispatcher>();
    }
    return g_instance;
}

}  // namespace bootweave
