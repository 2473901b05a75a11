// SPDX-License-Identifier: Apache-2.0
#include "util/thread.h"

#include <memory>
#include <utility>

#include "util/error_text.h"
#include "util/exception.h"

namespace bootweave {
namespace {

using Body = std::function<void()>;

void* RunBody(void* argument) {
    const std::unique_ptr<Body> body(static_cast<Body*>(argument));
    (*body)();
    return nullptr;
}

}  // namespace

Thread::Thread(std::function<void()> body) {
    auto owned = std::make_unique<Body>(std::move(body));
    const int error = pthread_create(&thread_, nullptr, RunBody, owned.get());
    if (error != 0) {
        throw Exception(ErrorText(error));
    }
    static_cast<void>(owned.release());  // the new thread's now
    joinable_ = true;
}

Thread::Thread(Thread&& other) noexcept
    : thread_(other.thread_), joinable_(std::exchange(other.joinable_, false)) {}

void Thread::Join() {
    if (std::exchange(joinable_, false)) {
        pthread_join(thread_, nullptr);
    }
}

}  // namespace bootweave
