// SPDX-License-Identifier: Apache-2.0
#include "graph/virtual_run.h"

#include <deque>
#include <queue>
#include <tuple>
#include <utility>

#include "graph/executor.h"
#include "graph/stall.h"

namespace bootweave {
namespace {

std::string CircleAmong(std::span<Node* const> nodes) REQUIRES(g_process_lock) {
    for (Node* node : nodes) {
        if (node->state() == NodeState::kWaitingForward) {
            return StallWatch::DescribeCircleLocked(*node, Direction::kForward);
        }
    }
    return {};
}

/// The end of a node's own work, or of a step that is served. What begins first ends first at the same time.
struct Event {
    VirtualTime end;
    std::size_t number;
    std::size_t span;
    bool is_step;

    bool operator>(const Event& other) const {
        return std::tie(end, number) > std::tie(other.end, other.number);
    }
};

/// The steps that a node has left.
struct Steps {
    std::size_t span;
    VirtualTime time;
    std::size_t count;
};

class Simulator {
  public:
    using WorkOf = std::function<VirtualWork(const Node&)>;

    Simulator(std::span<Node* const> nodes, std::size_t workers, bool randomize, const WorkOf& work_of)
        : nodes_(nodes), workers_(workers), work_of_(work_of), executor_(0, randomize) {}

    VirtualOutcome RunLocked() REQUIRES(g_process_lock) {
        for (Node* node : nodes_) {
            node->ScheduleForward(executor_);
        }
        TakeNodesLocked();
        while (!events_.empty()) {
            const Event event = events_.top();
            events_.pop();
            now_ = event.end;
            if (event.is_step) {
                EndStepLocked();
            } else {
                FinishLocked(event.span);
            }
            TakeNodesLocked();
        }
        outcome_.circle = CircleAmong(nodes_);
        return std::move(outcome_);
    }

  private:
    void TakeNodesLocked() REQUIRES(g_process_lock) {
        while (running_ < workers_) {
            Node* const node = executor_.TakeLocked();
            if (node == nullptr) {
                break;
            }
            ++running_;
            const VirtualWork work = work_of_(*node);
            const std::size_t span = outcome_.spans.size();
            outcome_.spans.push_back({node, now_, now_});
            taken_.push_back(node);
            if (work.shared_steps == 0) {
                events_.push({now_ + work.time, ++number_, span, false});
            } else {
                steps_.push_back({span, work.time, work.shared_steps});
            }
        }
        ServeNext();
    }

    void ServeNext() {
        if (!serving_ && !steps_.empty()) {
            serving_ = true;
            const Steps& next = steps_.front();
            const auto count = static_cast<VirtualTime::rep>(next.count);
            events_.push({now_ + next.time / count, ++number_, next.span, true});
            steps_.front().time -= next.time / count;
        }
    }

    void EndStepLocked() REQUIRES(g_process_lock) {
        Steps steps = steps_.front();
        steps_.pop_front();
        serving_ = false;
        if (--steps.count > 0) {
            steps_.push_back(steps);
        } else {
            FinishLocked(steps.span);
        }
    }

    void FinishLocked(std::size_t span) REQUIRES(g_process_lock) {
        outcome_.spans[span].end = now_;
        --running_;
        taken_[span]->FinishLocked(executor_);
    }

    const std::span<Node* const> nodes_;
    const std::size_t workers_;
    const WorkOf& work_of_;
    Executor executor_;  // for its queue: the workers are imagined
    std::priority_queue<Event, std::vector<Event>, std::greater<>> events_;
    std::deque<Steps> steps_;  // the first one is served
    bool serving_ = false;
    std::size_t number_ = 0;   // of the last event
    std::size_t running_ = 0;  // nodes
    VirtualTime now_{0};
    std::vector<Node*> taken_;  // by span
    VirtualOutcome outcome_;
};

}  // namespace

VirtualOutcome RunInVirtualTime(std::span<Node* const> nodes, std::size_t workers, bool randomize,
                                const std::function<VirtualWork(const Node&)>& work_of) {
    Simulator simulator(nodes, workers, randomize, work_of);
    const ProcessLockGuard lock;
    return simulator.RunLocked();
}

}  // namespace bootweave
