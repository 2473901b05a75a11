// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/control_group.h"

#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include "util/retry.h"

namespace bootweave {
namespace {

UniqueFd OpenAt(int directory, const char* path, int flags) {
    return UniqueFd(RetryOnEintr([&] { return ::openat(directory, path, flags | O_CLOEXEC); }));
}

UniqueFd OpenHierarchy(const std::string& root) {
    UniqueFd directory = OpenAt(AT_FDCWD, root.c_str(), O_RDONLY | O_DIRECTORY);
    struct statfs status {};
    if (!directory.valid() || ::fstatfs(directory.get(), &status) != 0) {
        return {};
    }
    if (status.f_type != CGROUP2_SUPER_MAGIC) {
        errno = ENODEV;
        return {};
    }
    return directory;
}

/// Enters one level, made when missing. The name must not lead out of the hierarchy.
UniqueFd EnterGroup(const UniqueFd& parent, const std::string& name) {
    if (name.empty() || name == "." || name == "..") {
        errno = EINVAL;
        return {};
    }
    if (::mkdirat(parent.get(), name.c_str(), 0755) != 0 && errno != EEXIST) {
        return {};
    }
    return OpenAt(parent.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
}

}  // namespace

UniqueFd OpenControlGroup(const std::string& root, const std::string& group) {
    UniqueFd here = OpenHierarchy(root);
    std::string_view rest = group;
    while (here.valid()) {
        const std::size_t slash = rest.find('/');
        here = EnterGroup(here, std::string(rest.substr(0, slash)));
        if (slash == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(slash + 1);
    }
    return here.valid() ? OpenAt(here.get(), "cgroup.procs", O_WRONLY) : UniqueFd();
}

}  // namespace bootweave
