// SPDX-License-Identifier: Apache-2.0
#include "hostcli/command_runner.h"

#include <list>

#include "platform/log.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using Plinth::Cmdgen::CommandInput;
using Plinth::Cmdgen::CommandOutput;
using Plinth::Cmdgen::OptionParser;

constexpr const char* kDispatcherName = "bootweave";

std::shared_ptr<CommandInput> MakeInput(const OptionParser& parser) {
    auto input = CommandInput::New();
    std::list<std::string> path = parser.GetCommandPath();
    input->SetDispatcher(kDispatcherName);
    input->SetCommandPath(path);
    for (const auto& [name, value] : parser.GetCommandParameters()) {
        input->AddParameter(name, value);
    }
    return input;
}

}  // namespace

void RunCommandLine(const std::string& line, const DispatcherSource& dispatcher) {
    OptionParser parser;
    if (!parser.ParseString(line)) {
        for (const std::string& error : parser.GetParseErrors()) {
            Log_Level(2, "Executor was unable to parse command: %s\n", error.c_str());
        }
        throw Exception("Executor failed to parse command " +
                        line);  // no colon: log scanners match this line
    }
    const auto output = CommandOutput::New();
    dispatcher()->ExecuteCommand(MakeInput(parser), output);
    if (output->HasError()) {
        for (const std::string& error : output->GetErrors()) {
            Log_Level(2, "execution of '%s' failed : %s\n", line.c_str(), error.c_str());
        }
        throw Exception("Executor failed to execute command: " + line);
    }
}

std::list<std::string> CheckCommandLine(const std::string& line, const Plinth::Cmdgen::Dispatcher* dispatcher,
                                        uid_t user) {
    OptionParser parser;
    if (!parser.ParseString(line)) {
        return parser.GetParseErrors();
    }
    CommandOutput output;
    if (dispatcher != nullptr) {
        dispatcher->CheckCommand(*MakeInput(parser), user, output);
    }
    return output.GetErrors();
}

}  // namespace bootweave
