// SPDX-License-Identifier: Apache-2.0
#include "graph/executor.h"

#include <string>

#include "graph/stall.h"
#include "util/exception.h"

namespace bootweave {
namespace {

constexpr const char* kNoConditionVariable = "Condition variable for Executor could not be initialized";

}  // namespace

Executor::Executor(std::int32_t threads, bool randomize)
    : work_to_do_(kNoConditionVariable), idle_(kNoConditionVariable), randomize_(randomize) {
    for (std::int32_t created = 0; created < threads; ++created) {
        try {
            workers_.emplace_back([this] { Work(); });
        } catch (const std::exception&) {
            Stop();
            // The pieces join without a blank before "requested"; log scanners match this line.
            throw Exception("Could not create enough execution threads. (" + std::to_string(created) +
                            " created, " + std::to_string(threads) + "requested)");
        }
    }
}

Executor::~Executor() {
    Stop();
    const ProcessLockGuard lock;
    StallWatch::NoteDroppedLocked(queue_.size());
}

void Executor::Stop() {
    {
        const ProcessLockGuard lock;
        stop_ = true;
        work_to_do_.Broadcast();
    }
    for (Thread& worker : workers_) {
        worker.Join();
    }
}

void Executor::Enqueue(Node& node) {
    const ProcessLockGuard lock;
    queue_.Push(node);
    work_to_do_.Broadcast();
}

void Executor::Expect(std::span<Node* const> nodes) {
    const ProcessLockGuard lock;
    queue_.Expect(nodes);
}

void Executor::WaitUntilIdle() {
    const ProcessLockGuard lock;
    while (running_ > 0 || queue_.size() > 0) {
        idle_.Wait();
    }
}

void Executor::RunLocked(Node& node) {
    if (queue_.size() > 0 && sleeping_ > 0) {
        work_to_do_.Broadcast();
    }
    ++running_;
    node.RunLocked(*this);
    --running_;
    if (running_ == 0 && queue_.size() == 0) {
        idle_.Broadcast();
    }
}

void Executor::Work() {
    g_process_lock.Lock();
    while (!stop_) {
        Node* node = TakeLocked();
        if (node != nullptr) {
            RunLocked(*node);
            continue;
        }
        ++sleeping_;
        work_to_do_.Wait();
        --sleeping_;
    }
    g_process_lock.Unlock();
}

}  // namespace bootweave
