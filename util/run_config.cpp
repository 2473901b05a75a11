// SPDX-License-Identifier: Apache-2.0
#include "util/run_config.h"

#include <ctime>

#include "util/process_lock.h"

namespace bootweave {
namespace {

constinit std::shared_ptr<RunConfig> g_instance GUARDED_BY(g_process_lock);

}  // namespace

RunConfig::RunConfig() : seed(std::time(nullptr)) {}

std::shared_ptr<RunConfig> RunConfig::Instance() {
    const ProcessLockGuard lock;
    if (g_instance == nullptr) {
        g_instance = std::make_shared<RunConfig>();
    }
    return g_instance;
}

}  // namespace bootweave
