// SPDX-License-Identifier: Apache-2.0
#include "graph/barrier_registry.h"

#include <utility>

#include "util/exception.h"

namespace bootweave {

BarrierRegistry& BarrierRegistry::Instance() {
    const ProcessLockGuard lock;
    static const std::unique_ptr<BarrierRegistry> instance = std::make_unique<BarrierRegistry>();
    return *instance;
}

InitBarrier* BarrierRegistry::Find(std::string_view name, bool create) {
    const ProcessLockGuard lock;
    const auto found = barriers_.find(name);
    if (found != barriers_.end()) {
        return found->second.get();
    }
    if (!create) {
        return nullptr;
    }
    const std::string owned(name);
    return &Register(std::make_unique<InitBarrier>(owned), owned);
}

InitBarrier& BarrierRegistry::Register(std::unique_ptr<InitBarrier> barrier, const std::string& name) {
    const ProcessLockGuard lock;
    return *(barriers_[name] = std::move(barrier));
}

std::vector<InitBarrier*> BarrierRegistry::List() const {
    const ProcessLockGuard lock;
    std::vector<InitBarrier*> list;
    list.reserve(barriers_.size());
    for (const auto& [name, barrier] : barriers_) {
        list.push_back(barrier.get());
    }
    return list;
}

PriorityBarrier& BarrierRegistry::Priority(std::uint32_t priority) {
    const ProcessLockGuard lock;
    const std::string name = PriorityBarrier::NameOf(priority);
    if (InitBarrier* found = Find(name, false); found != nullptr) {
        auto* barrier = dynamic_cast<PriorityBarrier*>(found);
        if (barrier == nullptr) {
            throw Exception("barrier '" + name + "' does not stand for a priority");
        }
        return *barrier;
    }
    auto created = std::make_unique<PriorityBarrier>(priority, *this);
    PriorityBarrier& barrier = *created;
    Register(std::move(created), name);
    return barrier;
}

PriorityBarrier* BarrierRegistry::FindPriorityLocked(std::uint32_t priority) {
    return dynamic_cast<PriorityBarrier*>(Find(PriorityBarrier::NameOf(priority), false));
}

void BarrierRegistry::Clear() {
    const ProcessLockGuard lock;
    barriers_.clear();
    priorities_.clear();
}

}  // namespace bootweave
