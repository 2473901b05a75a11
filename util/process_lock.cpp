// SPDX-License-Identifier: Apache-2.0
#include "util/process_lock.h"

#include <cassert>

#include "util/exception.h"

namespace bootweave {

// Constant-initialised and trivially alive until the process ends: threads may outlive every destructor.
constinit ProcessLock g_process_lock;

ConditionVariable::ConditionVariable(const char* failure) {
    if (pthread_cond_init(&condition_, nullptr) != 0) {
        throw Exception(failure);
    }
}

ConditionVariable::~ConditionVariable() {
    pthread_cond_destroy(&condition_);
}

void ConditionVariable::Wait() {
    ProcessLock& lock = g_process_lock;
    assert(lock.HeldByThisThread() && lock.depth_ == 1);
    lock.depth_ = 0;
    lock.owner_.store(pthread_t{}, std::memory_order_relaxed);
    pthread_cond_wait(&condition_, &lock.mutex_);
    lock.depth_ = 1;
    lock.owner_.store(pthread_self(), std::memory_order_relaxed);
}

void ConditionVariable::Broadcast() {
    pthread_cond_broadcast(&condition_);
}

}  // namespace bootweave
