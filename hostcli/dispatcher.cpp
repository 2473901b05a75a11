// SPDX-License-Identifier: Apache-2.0
#include "hostcli/dispatcher.h"

#include <exception>

#include "platform/log.h"

namespace bootweave {
namespace {

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
