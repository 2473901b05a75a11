// SPDX-License-Identifier: Apache-2.0
#include "plugins/host_profile.h"

#include <algorithm>

#include <sys/stat.h>

namespace bootweave {
namespace {

bool Exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

}  // namespace

HostProfile& HostProfile::Instance() {
    const ProcessLockGuard lock;
    static HostProfile instance({"/etc/corvane/hostprofile.xml", "/etc/corvane/hostprofile.xml.gz"});
    return instance;
}

bool HostProfile::Present() {
    const ProcessLockGuard lock;
    if (!present_.has_value()) {
        present_ = std::any_of(paths_.begin(), paths_.end(), Exists);
    }
    return *present_;
}

}  // namespace bootweave
