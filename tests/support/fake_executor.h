// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "util/unique_fd.h"

namespace bootweave {

/// Stands at the control socket in place of an executor process: a thread that reads each request to its end
/// and answers what the test wants.
class FakeExecutor {
  public:
    /// The bytes to answer a request with; none closes the connection unanswered.
    using Answer = std::function<std::string(const std::string& request)>;

    /// Listens at `path`, which must be free.
    FakeExecutor(const std::string& path, Answer answer);
    ~FakeExecutor();
    FakeExecutor(const FakeExecutor&) = delete;
    FakeExecutor& operator=(const FakeExecutor&) = delete;

    /// The requests answered so far, in order. One whose sender did not shut its side down ends in "<no
    /// end>".
    [[nodiscard]] std::vector<std::string> Requests() const;
    /// Answers the connections that are there and stops listening; the socket file stays. \return all
    /// requests
    [[nodiscard]] std::vector<std::string> Finish();

    /// A status as it goes over the socket.
    [[nodiscard]] static std::string Status(std::int32_t status);

  private:
    void Serve();

    const Answer answer_;
    UniqueFd listener_;
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

}  // namespace bootweave
