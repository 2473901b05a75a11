// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cassert>

#include <pthread.h>

#include "util/thread_annotations.h"

/// \file
/// The one process-wide lock, called the graph lock: it guards the graph's state, the barrier registry, the
/// priority list, the worker pool's queue, the lazy creation of process-wide services, each reset of the
/// command executor and the host-profile decision.
///
/// It is recursive and knows its owner, so that code may take it without asking who called. The lock is a
/// leaf: nothing that can wait for another thread is done while it is held, but for a condition variable
/// below, and the reset of the command executor, which waits for a child.

namespace bootweave {

/// A recursive mutex with a hold count and an owner.
class CAPABILITY("mutex") ProcessLock {
  public:
    /// Takes the lock, or takes it once more when the calling thread holds it.
    void Lock() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS {
        if (!HeldByThisThread()) {
            pthread_mutex_lock(&mutex_);
            owner_.store(pthread_self(), std::memory_order_relaxed);
        }
        ++depth_;
    }
    /// Gives it back once; the last time frees it.
    void Unlock() RELEASE() NO_THREAD_SAFETY_ANALYSIS {
        assert(HeldByThisThread());
        if (--depth_ == 0) {
            owner_.store(pthread_t{}, std::memory_order_relaxed);
            pthread_mutex_unlock(&mutex_);
        }
    }
    /// Whether the calling thread holds it. A thread sees its own stores in order, so the owner can only read
    /// as itself when it is: relaxed suffices.
    [[nodiscard]] bool HeldByThisThread() const {
        return owner_.load(std::memory_order_relaxed) == pthread_self();
    }
    /// How often its owner has taken it; meaningful to the owner only.
    [[nodiscard]] unsigned depth() const { return depth_; }

  private:
    friend class ConditionVariable;

    // Adaptive: it is held for less time than it takes to put a thread to sleep.
    pthread_mutex_t mutex_ = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
    std::atomic<pthread_t> owner_{};
    unsigned depth_ = 0;
};

/// The graph lock.
extern ProcessLock g_process_lock;

/// Holds the graph lock for a scope.
class SCOPED_CAPABILITY ProcessLockGuard {
  public:
    ProcessLockGuard() ACQUIRE(g_process_lock) { g_process_lock.Lock(); }
    ~ProcessLockGuard() RELEASE() { g_process_lock.Unlock(); }
    ProcessLockGuard(const ProcessLockGuard&) = delete;
    ProcessLockGuard& operator=(const ProcessLockGuard&) = delete;
};

/// A condition variable that goes with the graph lock.
class ConditionVariable {
  public:
    /// \throws Exception  `failure`, when the system cannot make one
    explicit ConditionVariable(const char* failure);
    ~ConditionVariable();
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    /// Frees the lock, sleeps until a broadcast (or for no reason: test the predicate), takes the lock again.
    /// The caller holds the lock exactly once.
    void Wait() REQUIRES(g_process_lock);
    /// Wakes every thread that waits.
    void Broadcast();

  private:
    pthread_cond_t condition_;
};

}  // namespace bootweave
