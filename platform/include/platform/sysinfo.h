// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

/// \file
/// Nodes of the kernel's system information. The one node used is the kernel's own log.

/// The node of the kernel's system log: each `Set` adds one record.
inline constexpr std::uint16_t KSI_NODE_system_log = 1;

namespace Hostrig::Lib {

/// A request to the host that failed; `what()` is the system's error text.
class HostrigException : public std::exception {
  public:
    explicit HostrigException(std::string message) : message_(std::move(message)) {}
    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

  private:
    std::string message_;
};

}  // namespace Hostrig::Lib

namespace MantleCtl::Util {

/// One write to a node: construct, add the input, set. Objects are independent; any thread may use its own.
class Sysinfo {
  public:
    explicit Sysinfo(std::uint16_t node) : node_(node) {}

    /// Adds text to what `Set` will write.
    void AddInput(const std::string& text) { input_ += text; }

    /// Writes the input as one record.
    ///
    /// Control characters inside are made harmless; a record over 900 bytes is cut and ends in "...".
    /// \throws Hostrig::Lib::HostrigException  with the system's error text
    void Set();

  private:
    std::uint16_t node_;
    std::string input_;
};

}  // namespace MantleCtl::Util
