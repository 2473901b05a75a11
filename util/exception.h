// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>

/// \file
/// The program's exceptions. `what()` is the whole message, ready to be logged.

namespace bootweave {

/// Base of the program's exceptions: one message.
class Exception : public std::exception {
  public:
    explicit Exception(std::string message);
    [[nodiscard]] const char* what() const noexcept override;

  private:
    std::string message_;
};

/// A plugin's method failed: "<plugin>-><method>() failed: <reason>".
class MethodFailedException : public Exception {
  public:
    MethodFailedException(const std::string& method, const std::string& plugin, const std::string& reason);
};

/// A kind of plugin lacks a method: "method `<what>' is not implemented".
class NotImplementedException : public Exception {
  public:
    explicit NotImplementedException(const std::string& what);
};

/// A plugin file cannot be loaded: "plugin `<plugin>' is invalid: <reason>".
class InvalidPluginException : public Exception {
  public:
    InvalidPluginException(const std::string& plugin, const std::string& reason);
};

}  // namespace bootweave
