// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

/// \file
/// The host's command framework: parses a management command line, finds the program that answers it, runs
/// it.
///
/// Threads: one thread at a time per object.

namespace Plinth::CallSpec {

/// The parameters of one call.
class Input {
  public:
    virtual ~Input() = default;
    /// Adds one parameter; a repeated name gives a repeated pair, in order.
    void AddParameter(const std::string& name, const std::string& value) {
        parameters_.emplace_back(name, value);
    }
    /// All parameters, in the order in which they were added.
    [[nodiscard]] const std::vector<std::pair<std::string, std::string>>& parameters() const {
        return parameters_;
    }

  private:
    std::vector<std::pair<std::string, std::string>> parameters_;
};

/// What a call came to.
class Output {
  public:
    virtual ~Output() = default;
    /// Adds one error line.
    void AddError(const std::string& error) { errors_.push_back(error); }
    [[nodiscard]] bool HasError() const { return !errors_.empty(); }
    /// The error lines, in order.
    [[nodiscard]] const std::list<std::string>& GetErrors() const { return errors_; }

  private:
    std::list<std::string> errors_;
};

}  // namespace Plinth::CallSpec

namespace Plinth::Cmdgen {

/// Parses one command line: a path of words, then options with values.
class OptionParser {
  public:
    using Parameters = std::vector<std::pair<std::string, std::string>>;

    /// Parses `line`; results and errors of an earlier call are forgotten.
    ///
    /// \return false when there is any error; the path and the parameters then mean nothing
    bool ParseString(const std::string& line);

    /// Why the last line did not parse, one text per error.
    [[nodiscard]] const std::list<std::string>& GetParseErrors() const { return errors_; }
    /// Name and value of each option, in the order of the line, repeated ones included.
    [[nodiscard]] const Parameters& GetCommandParameters() const { return parameters_; }
    /// The words of the command path.
    [[nodiscard]] const std::list<std::string>& GetCommandPath() const { return path_; }

  private:
    std::list<std::string> path_;
    Parameters parameters_;
    std::list<std::string> errors_;
};

/// One command to be dispatched.
class CommandInput : public CallSpec::Input {
  public:
    [[nodiscard]] static std::shared_ptr<CommandInput> New();

    /// Names the dispatcher that sends the command; the command sees it in its environment.
    void SetDispatcher(const std::string& dispatcher) { dispatcher_ = dispatcher; }
    /// Takes a copy of the words of the command path.
    void SetCommandPath(std::list<std::string>& path) { path_ = path; }

    [[nodiscard]] const std::string& dispatcher() const { return dispatcher_; }
    [[nodiscard]] const std::list<std::string>& path() const { return path_; }

  private:
    std::string dispatcher_;
    std::list<std::string> path_;
};

/// What a dispatched command came to.
class CommandOutput : public CallSpec::Output {
  public:
    [[nodiscard]] static std::shared_ptr<CommandOutput> New();
};

/// Finds commands in external directories and runs them, one at a time.
class Dispatcher {
  public:
    virtual ~Dispatcher() = default;

    /// Adds a directory to look for commands in, behind those added before.
    ///
    /// \throws std::exception  with the system's error text, unless `path` is a directory that can be read
    void AddExternalDirectory(const std::string& path);

    /// Runs the command and waits for its end. Every failure of the command is an error in `output`.
    void ExecuteCommand(std::shared_ptr<CommandInput> input, std::shared_ptr<CommandOutput> output);

    /// Looks the command up as ExecuteCommand() does in a process of `user`, and runs nothing: what would
    /// keep the command from being started is an error in `output`.
    void CheckCommand(const CommandInput& input, uid_t user, CommandOutput& output) const;

  private:
    std::vector<std::string> directories_;
};

}  // namespace Plinth::Cmdgen
