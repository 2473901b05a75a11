// SPDX-License-Identifier: Apache-2.0
#include "analyze/chosen_run.h"

#include <utility>

#include "util/exception.h"

namespace bootweave {
namespace {

/// The index of the last block of a boot.
std::size_t LastBoot(const BootProfile& profile, const std::string& path) {
    for (std::size_t index = profile.blocks.size(); index > 0; --index) {
        if (profile.blocks[index - 1].kind == RunKind::kBoot) {
            return index - 1;
        }
    }
    throw Exception(path + " tells of no boot, only of daemons; try --boot last");
}

std::size_t Choose(const BootProfile& profile, const std::string& path, const BlockChoice& choice) {
    const std::size_t count = profile.blocks.size();
    if (count == 0) {
        throw Exception(path + " holds no boot profile");
    }
    switch (choice.which) {
        case BlockChoice::Which::kLast:
            return count - 1;
        case BlockChoice::Which::kNumber:
            if (choice.number > count) {
                throw Exception("there is no block " + std::to_string(choice.number) + " in " + path +
                                ", the last one is " + std::to_string(count));
            }
            return choice.number - 1;
        default:
            return LastBoot(profile, path);
    }
}

}  // namespace

ChosenRun ChooseRun(BootProfile profile, const std::string& path, const BlockChoice& choice) {
    const std::size_t index = Choose(profile, path, choice);
    return {path, index + 1, profile.blocks.size(), std::move(profile.blocks[index])};
}

}  // namespace bootweave
