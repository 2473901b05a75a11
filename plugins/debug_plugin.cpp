// SPDX-License-Identifier: Apache-2.0
#include "plugins/debug_plugin.h"

#include "platform/log.h"
#include "util/exception.h"
#include "util/shell.h"

namespace bootweave {

DebugPlugin::DebugPlugin(const DebugInjection& injection)
    : Plugin(injection.name), command_(injection.command) {
    requires_ = injection.requires_names;
    provides_ = injection.provides_names;
    LinkIntoGraph(BarrierRegistry::Instance());
}

void DebugPlugin::Start() {
    const int status = RunShellCommand(command_);
    if (status != 0) {
        Log_Level(5, "debug injection '%s' returned %#08x\n", name().c_str(), static_cast<unsigned>(status));
    }
}

void DebugPlugin::ApplyHostProfile() {
    throw NotImplementedException("DebugPlugin::ApplyHostProfile");
}

}  // namespace bootweave
