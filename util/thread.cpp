// SPDX-License-Identifier: Apache-2.0
#include "util/thread.h"

#include <cstddef>
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

/// By default a stack is as large as the limit on the first thread's, which may be next to nothing; to start
/// a program takes 32 KiB of it at once.
constexpr std::size_t kLeastStack = 262'144;

int Create(pthread_t& thread, Body* body) {
    pthread_attr_t attributes{};
    std::size_t size = 0;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    error = pthread_attr_getstacksize(&attributes, &size);
    if (error == 0 && size < kLeastStack) {
        error = pthread_attr_setstacksize(&attributes, kLeastStack);
    }
    if (error == 0) {
        error = pthread_create(&thread, &attributes, RunBody, body);
    }
    pthread_attr_destroy(&attributes);
    return error;
}

}  // namespace

Thread::Thread(std::function<void()> body) {
    auto owned = std::make_unique<Body>(std::move(body));
    const int error = Create(thread_, owned.get());
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
