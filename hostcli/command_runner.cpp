// SPDX-License-Identifier: Apache-2.0
#include "hostcli/command_runner.h"

#include <list>

#include "platform/log.h"
#include "util/exception.h"

namespace bootweave {
namespace {

constexpr const char* kDispatcherName = "bootweave";

}  // namespace

void RunCommandLine(const std::string& line, const DispatcherSource& dispatcher) {
    using Plinth::Cmdgen::CommandInput;
    using Plinth::Cmdgen::CommandOutput;

    Plinth::Cmdgen::OptionParser parser;
    if (!parser.ParseString(line)) {
        for (const std::string& error : parser.GetParseErrors()) {
            Log_Level(2, "Executor was unable to parse command: %s\n", error.c_str());
        }
        throw Exception("Executor failed to parse command " +
                        line);  // no colon: log scanners match this line
    }
    const auto input = CommandInput::New();
    const auto output = CommandOutput::New();
    std::list<std::string> path = parser.GetCommandPath();
    input->SetDispatcher(kDispatcherName);
    input->SetCommandPath(path);
    for (const auto& [name, value] : parser.GetCommandParameters()) {
        input->AddParameter(name, value);
    }
    dispatcher()->ExecuteCommand(input, output);
    if (output->HasError()) {
        for (const std::string& error : output->GetErrors()) {
            Log_Level(2, "execution of '%s' failed : %s\n", line.c_str(), error.c_str());
        }
        throw Exception("Executor failed to execute command: " + line);
    }
}

}  // namespace bootweave
