// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/cmdgen.h"
#include "platform/linux/command_file.h"
#include "platform/linux/command_process.h"
#include "platform/linux/command_words.h"
#include "util/child_process.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace Plinth::Cmdgen {
namespace {

using bootweave::CapturedRun;
using bootweave::CommandFile;
using bootweave::Exception;
using bootweave::UniqueFd;

constexpr std::size_t kMaxErrorOutput = 65536;

std::string Join(const std::list<std::string>& words, char separator) {
    std::string joined;
    for (const std::string& word : words) {
        joined += word;
        joined += separator;
    }
    if (!joined.empty()) {
        joined.pop_back();
    }
    return joined;
}

std::string UnknownCommand(const CommandInput& input) {
    return "unknown command: " + Join(input.path(), ' ');
}

/// The words come from whoever filled the input: one that no parser let through must not name a file
/// elsewhere.
bool IsCommandPath(const std::list<std::string>& path) {
    return !path.empty() && std::all_of(path.begin(), path.end(), bootweave::IsCommandWord);
}

/// The file of that name in the first directory that has one, even when it is not fit to be run.
std::optional<CommandFile> FindCommand(const std::vector<std::string>& directories, const std::string& name) {
    for (const std::string& directory : directories) {
        std::optional<CommandFile> file = CommandFile::Find(directory, name);
        if (file.has_value()) {
            return file;
        }
    }
    return std::nullopt;
}

/// Whether a process of `user` finds such a file, in the same order.
bool HasCommand(const std::vector<std::string>& directories, const std::string& name, uid_t user) {
    return std::any_of(directories.begin(), directories.end(), [&](const std::string& directory) {
        return CommandFile::IsTrustedBy(user, directory, name);
    });
}

std::vector<std::string> Arguments(const std::string& program, const CommandInput& input) {
    std::vector<std::string> arguments{program};
    for (const auto& [name, value] : input.parameters()) {
        std::string& argument = arguments.emplace_back("--");
        argument.append(name).append("=").append(value);
        if (argument.find('\0') != std::string::npos) {
            throw Exception(bootweave::ErrorText(EINVAL));  // would reach the command cut short
        }
    }
    return arguments;
}

CapturedRun Run(const CommandFile& file, const CommandInput& input, const std::string& name) {
    const UniqueFd null_device(
        bootweave::RetryOnEintr([] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }));
    if (!null_device.valid()) {
        throw Exception(bootweave::LastErrorText());
    }
    bootweave::SpawnOptions options;
    options.path = file.exec_path();
    options.argv = Arguments(file.path(), input);
    options.environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOSTCLI_DISPATCHER=" + input.dispatcher(),
                           "HOSTCLI_COMMAND=" + name};
    options.descriptors = {{null_device.get(), STDIN_FILENO}, {STDOUT_FILENO, STDOUT_FILENO}};
    options.directory = "/";
    return bootweave::RunCapturingErrors(std::move(options), kMaxErrorOutput);
}

/// False, with errno set, for anything but a directory that can be read.
bool IsReadableDirectory(const std::string& path) {
    const UniqueFd directory(
        bootweave::RetryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (directory.valid()) {
        return true;
    }
    if (errno != EMFILE && errno != ENFILE) {
        return false;
    }
    // That says nothing of the directory, which would be missed for as long as the process lives.
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || ::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) {
        return false;
    }
    errno = ENOTDIR;
    return S_ISDIR(status.st_mode);
}

/// Each line with something in it is an error; without one, how the command ended is.
void AddErrors(const CapturedRun& result, CommandOutput& output) {
    bool has_line = false;
    std::string_view rest = result.error_output;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        if (!line.empty()) {
            output.AddError(std::string(line));
            has_line = true;
        }
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    if (!has_line) {
        output.AddError(result.status.Describe());
    }
}

}  // namespace

std::shared_ptr<CommandInput> CommandInput::New() {
    return std::make_shared<CommandInput>();
}

std::shared_ptr<CommandOutput> CommandOutput::New() {
    return std::make_shared<CommandOutput>();
}

void Dispatcher::AddExternalDirectory(const std::string& path) {
    if (!IsReadableDirectory(path)) {
        throw Exception(bootweave::LastErrorText());
    }
    directories_.push_back(std::filesystem::absolute(path).string());
}

// The platform's signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void Dispatcher::ExecuteCommand(std::shared_ptr<CommandInput> input, std::shared_ptr<CommandOutput> output) {
    const std::string name = Join(input->path(), '.');
    try {
        const bool nameable = IsCommandPath(input->path());
        const auto file = nameable ? FindCommand(directories_, name) : std::nullopt;
        if (!file.has_value()) {
            output->AddError(UnknownCommand(*input));
            return;
        }
        const CapturedRun result = Run(*file, *input, name);
        if (!result.status.success()) {
            AddErrors(result, *output);
        }
    } catch (const Exception& reason) {
        output->AddError(name + ": " + reason.what());
    }
}

void Dispatcher::CheckCommand(const CommandInput& input, uid_t user, CommandOutput& output) const {
    const std::string name = Join(input.path(), '.');
    try {
        if (!IsCommandPath(input.path()) || !HasCommand(directories_, name, user)) {
            output.AddError(UnknownCommand(input));
            return;
        }
        static_cast<void>(Arguments(name, input));
    } catch (const Exception& reason) {
        output.AddError(name + ": " + reason.what());
    }
}

}  // namespace Plinth::Cmdgen
