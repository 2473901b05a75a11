// SPDX-License-Identifier: Apache-2.0
#include "graph/barrier.h"

#include <algorithm>
#include <vector>

#include "graph/barrier_registry.h"
#include "platform/log.h"
#include "platform/system_alert.h"
#include "util/run_config.h"

namespace bootweave {
namespace {

constexpr std::uint32_t kBarrierOrderKey = 1;

bool IsPlugin(const Node* node) {
    return dynamic_cast<const InitBarrier*>(node) == nullptr;
}

}  // namespace

InitBarrier::InitBarrier(const std::string& name) : Node(name, kBarrierOrderKey) {}

void InitBarrier::Execute() {
    if (!dependencies().empty()) {
        return;
    }
    const std::string message = NotProvidedMessage();
    if (!RunConfig::Instance()->invoke) {
        MantleCtl::System::SystemInfoImpl().SetSystemAlert(message);
    }
    Log_Level(3, "%s\n", message.c_str());
}

std::string InitBarrier::NotProvidedMessage() const {
    std::string message = "Bootweave dependency error: Initialization barrier \"" + name() +
                          "\" is not provided by any plugin but the following plugins require it: ";
    const char* separator = "";
    for (const Node* dependent : dependents()) {
        message += separator;
        message += "\"" + dependent->name() + "\"";
        separator = ", ";
    }
    return message;
}

std::string InitBarrier::GetDotAttributes() const {
    return " shape=box";
}

PriorityBarrier::PriorityBarrier(std::uint32_t priority, BarrierRegistry& registry)
    : InitBarrier(NameOf(priority)), registry_(registry), priority_(priority) {
    const ProcessLockGuard lock;
    std::vector<std::uint32_t>& priorities = registry.PrioritiesLocked();
    const auto place =
        priorities.insert(std::lower_bound(priorities.begin(), priorities.end(), priority), priority);
    if (place != priorities.begin()) {
        AddDependency(*registry.FindPriorityLocked(*std::prev(place)));
    }
    if (std::next(place) != priorities.end()) {
        PutInFrontOfLocked(*registry.FindPriorityLocked(*std::next(place)));
    }
}

/// The daemons of the higher priority, and its barrier, wait for this one from now on. What they waited for
/// before stays: this barrier waits for it as well.
void PriorityBarrier::PutInFrontOfLocked(PriorityBarrier& higher) {
    std::vector<Node*> followers;
    std::copy_if(higher.dependencies().begin(), higher.dependencies().end(), std::back_inserter(followers),
                 IsPlugin);
    followers.push_back(&higher);
    for (Node* follower : followers) {
        AddDependent(*follower);
    }
}

std::string PriorityBarrier::NameOf(std::uint32_t priority) {
    return "_<->_priority_<->_" + std::to_string(priority);
}

void PriorityBarrier::Attach(Node& daemon) {
    const std::vector<std::uint32_t>& priorities = registry_.PrioritiesLocked();
    const auto place = std::lower_bound(priorities.begin(), priorities.end(), priority_);
    index_ = static_cast<std::int32_t>(place - priorities.begin());
    if (place != priorities.begin()) {
        registry_.FindPriorityLocked(*std::prev(place))->AddDependent(daemon);
    }
    AddDependency(daemon);
}

std::string PriorityBarrier::GetDotAttributes() const {
    return " shape=trapezium";
}

}  // namespace bootweave
