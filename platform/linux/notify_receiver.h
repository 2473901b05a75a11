// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "util/unique_fd.h"

namespace bootweave {

/// For tests: the socket on which a service manager gets notifications.
class NotifyReceiver {
  public:
    /// Listens at a path, or, when it begins with '@', at an abstract name.
    explicit NotifyReceiver(const std::string& address);

    [[nodiscard]] const std::string& address() const { return address_; }

    /// The datagrams that have come in since the last call, in order.
    [[nodiscard]] std::vector<std::string> Received();

  private:
    std::string address_;
    UniqueFd socket_;
};

}  // namespace bootweave
