// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include <pthread.h>

namespace bootweave {

/// A thread that is joined when its object ends. The body must not throw.
class Thread {
  public:
    /// Starts `body` on a new thread.
    ///
    /// \throws Exception  with the system's error text, when there is no thread to be had
    explicit Thread(std::function<void()> body);
    Thread(Thread&& other) noexcept;
    Thread& operator=(Thread&&) = delete;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    ~Thread() { Join(); }

    /// Waits for the body's end; harmless when repeated.
    void Join();

  private:
    pthread_t thread_{};
    bool joinable_ = false;
};

}  // namespace bootweave
