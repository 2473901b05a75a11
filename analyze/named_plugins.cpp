// SPDX-License-Identifier: Apache-2.0
#include "analyze/named_plugins.h"

#include <string_view>

#include "analyze/did_you_mean.h"
#include "util/exception.h"

namespace bootweave {

std::vector<std::size_t> PluginsNamed(const ProfileBlock& block, const std::string& name) {
    std::vector<std::size_t> found;
    std::vector<std::string_view> names;
    for (std::size_t index = 0; index < block.plugins.size(); ++index) {
        names.emplace_back(block.plugins[index].name);
        if (names.back() == name) {
            found.push_back(index);
        }
    }
    if (found.empty()) {
        throw Exception("the profile has no plugin " + name + DidYouMean(FindNearest(name, names)));
    }
    return found;
}

}  // namespace bootweave
