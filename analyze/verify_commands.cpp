// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_commands.h"

#include <exception>
#include <list>
#include <map>
#include <string>

#include "analyze/verify.h"
#include "hostcli/command_runner.h"
#include "hostcli/control_socket.h"

namespace bootweave {
namespace {

/// Judges command lines; the same ones come again and again.
class CommandVerifier {
  public:
    explicit CommandVerifier(const VerifySources& sources) : user_(sources.user) {
        for (const std::string& directory : sources.command_directories) {
            try {
                dispatcher_.AddExternalDirectory(directory);
                can_look_up_ = true;
            } catch (const std::exception&) {  // a host need not have all of them
            }
        }
    }

    /// Whether there is a directory to look commands up in.
    [[nodiscard]] bool can_look_up() const { return can_look_up_; }

    const std::list<std::string>& Check(const std::string& command) {
        const auto [known, is_new] = errors_.try_emplace(command);
        if (is_new) {
            known->second = ErrorsOf(command);
        }
        return known->second;
    }

  private:
    [[nodiscard]] std::list<std::string> ErrorsOf(const std::string& command) const {
        const std::string received = ReceivedRequest(command);
        if (IsStopRequest(received)) {
            return {"stops the command executor, because it begins with 'stop'"};
        }
        std::list<std::string> errors =
            CheckCommandLine(received, can_look_up_ ? &dispatcher_ : nullptr, user_);
        if (received.size() < command.size()) {
            errors.push_front("only its first " + std::to_string(received.size()) +
                              " bytes reach the command executor");
        }
        return errors;
    }

    uid_t user_;
    Plinth::Cmdgen::Dispatcher dispatcher_;
    bool can_look_up_ = false;
    std::map<std::string, std::list<std::string>> errors_;
};

}  // namespace

void CheckCommands(const std::vector<VerifiedPlugin>& plugins, const VerifySources& sources,
                   Findings& findings) {
    CommandVerifier verifier(sources);
    bool has_commands = false;
    for (const VerifiedPlugin& plugin : plugins) {
        if (!plugin.reported) {
            continue;
        }
        has_commands = has_commands || !plugin.commands.empty();
        for (const std::string& command : plugin.commands) {
            for (const std::string& error : verifier.Check(command)) {
                std::string text = "command '";
                text.append(command).append("': ").append(error);
                AddFinding(findings, plugin, Severity::kError, FindingKind::kCommand, text);
            }
        }
    }
    if (has_commands && !verifier.can_look_up() && !sources.command_directories.empty()) {
        findings.push_back(
            {sources.command_directories.front(), Severity::kWarning, FindingKind::kCommand, "",
             "cannot be read, nor can any other command directory: commands are not looked up"});
    }
}

}  // namespace bootweave
