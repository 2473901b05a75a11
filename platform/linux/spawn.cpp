// SPDX-License-Identifier: Apache-2.0
#include "platform/spawn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "util/child_process.h"

namespace {

/// Status codes are error numbers.
constexpr int kSuccess = 0;

bool CanBeDescriptor(int number) {
    return number >= 0 && number < ::sysconf(_SC_OPEN_MAX);
}

/// What the actions come to when they are made one after the other: a later one may name what an earlier one
/// made, or replace it.
std::vector<std::pair<int, int>> Descriptors(const MantleuserCompat_SpawnFileActions* actions) {
    std::map<int, int> sources;
    for (int i = 0; actions != nullptr && i < actions->count; ++i) {
        const auto [from, to] = actions->actions[i];
        const auto made = sources.find(from);
        sources[to] = made == sources.end() ? from : made->second;
    }
    std::vector<std::pair<int, int>> descriptors;
    descriptors.reserve(sources.size());
    for (const auto& [to, from] : sources) {
        descriptors.emplace_back(from, to);
    }
    return descriptors;
}

std::vector<std::string> Words(char* const* words) {
    std::vector<std::string> list;
    while (words != nullptr && *words != nullptr) {
        list.emplace_back(*words++);
    }
    return list;
}

}  // namespace

int MantleuserCompat_SpawnFileActionsInit(MantleuserCompat_SpawnFileActions* actions, int capacity) {
    *actions = {};
    if (capacity < 0) {
        return EINVAL;
    }
    // One at least: calloc may answer a request for nothing with null.
    const auto size = static_cast<std::size_t>(capacity) + 1;
    actions->actions = static_cast<MantleuserCompat_SpawnFileActions::Duplicate*>(
        std::calloc(size, sizeof(MantleuserCompat_SpawnFileActions::Duplicate)));
    if (actions->actions == nullptr) {
        return ENOMEM;
    }
    actions->capacity = capacity;
    return kSuccess;
}

int MantleuserCompat_SpawnFileActionsAddDup2(MantleuserCompat_SpawnFileActions* actions, int from, int to) {
    if (!CanBeDescriptor(from) || !CanBeDescriptor(to)) {
        return EBADF;
    }
    if (actions->count >= actions->capacity) {
        return ENOMEM;
    }
    actions->actions[actions->count++] = {from, to};
    return kSuccess;
}

int MantleuserCompat_Spawn(pid_t* pid, const char* path, const MantleuserCompat_SpawnFileActions* actions,
                           const void* attributes, char* const argv[], char* const envp[]) {
    bootweave::SpawnOptions options;
    options.path = path;
    options.argv = Words(argv);
    options.environment = Words(envp);
    options.descriptors = Descriptors(actions);
    if (attributes != nullptr || options.argv.empty()) {
        return EINVAL;
    }
    auto child = bootweave::ChildProcess::Spawn(options);
    if (!child.has_value()) {
        return errno;
    }
    *pid = child->Release();
    return kSuccess;
}

void MantleuserCompat_SpawnFileActionsDestroy(MantleuserCompat_SpawnFileActions* actions) {
    std::free(actions->actions);
    *actions = {};
}

const char* MantleuserStatus_CodeToString(int status) {
    const char* text = ::strerrordesc_np(status);  // not strerror: its buffer is overwritten
    return text != nullptr ? text : "Unknown error";
}
