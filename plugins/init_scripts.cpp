// SPDX-License-Identifier: Apache-2.0
#include "plugins/init_scripts.h"

#include <cerrno>
#include <optional>
#include <sstream>

#include <unistd.h>

#include "util/child_process.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/program_output.h"
#include "util/shell.h"

namespace bootweave {
namespace {

std::optional<ProgramOutput> ReadLister(const std::string& program) {
    SpawnOptions options;
    options.path = program;
    options.argv = {program, "-p"};
    options.inherit_environment = true;
    options.descriptors = {{STDIN_FILENO, STDIN_FILENO}, {STDERR_FILENO, STDERR_FILENO}};
    std::optional<ProgramOutput> output = ReadProgram(options);
    if (!output.has_value() && errno == ENOEXEC) {
        // A script without a first line that names its interpreter; the shell of a run of daemons takes it.
        options.path = "/bin/sh";
        options.argv = {"sh", program, "-p"};
        output = ReadProgram(options);
    }
    return output;
}

}  // namespace

InitScripts ParseInitScriptList(const std::string& output) {
    InitScripts scripts;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string path;
        int priority = 0;
        if (words >> path >> priority) {
            scripts.emplace(priority, path);
        }
    }
    return scripts;
}

InitScripts ListInitScripts(const std::string& command) {
    try {
        const std::optional<std::string> output = ReadShellCommand(command);
        return output.has_value() ? ParseInitScriptList(*output) : InitScripts();
    } catch (...) {
        throw Exception("Failed obtaining list of init.d scripts");
    }
}

InitScriptListing RunInitScriptLister(const std::string& program) {
    try {
        const std::optional<ProgramOutput> output = ReadLister(program);
        if (!output.has_value()) {
            return {{}, program + ": " + LastErrorText()};
        }
        const ExitStatus end = ExitStatus::FromRaw(output->raw_status.value_or(0));
        return {ParseInitScriptList(output->text), end.success() ? "" : program + ": " + end.Describe()};
    } catch (const Exception& error) {
        return {{}, program + ": " + error.what()};
    }
}

}  // namespace bootweave
