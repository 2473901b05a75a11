// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "graph/node.h"

namespace bootweave {

/// The names of the nodes that ran, in order. Any thread.
class RunRecord {
  public:
    void Add(const std::string& name) {
        const std::lock_guard lock(mutex_);
        names_.push_back(name);
    }
    [[nodiscard]] std::vector<std::string> names() const {
        const std::lock_guard lock(mutex_);
        return names_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> names_;
};

/// A node that notes its name when it runs, in either direction, and then does what the test wants.
class RecordingNode : public Node {
  public:
    RecordingNode(const std::string& name, RunRecord& record, std::uint32_t order_key = 1)
        : Node(name, order_key), record_(record) {}

    void Execute() override {
        record_.Add(name());
        if (on_execute) {
            on_execute();
        }
    }
    void ExecuteReverse() override { record_.Add("-" + name()); }
    [[nodiscard]] std::string GetDotAttributes() const override { return {}; }

    std::function<void()> on_execute;

  private:
    RunRecord& record_;
};

}  // namespace bootweave
