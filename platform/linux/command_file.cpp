// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/command_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/error_text.h"
#include "util/exception.h"
#include "util/retry.h"

namespace bootweave {
namespace {

constexpr mode_t kGroupAndOthersWrite = S_IWGRP | S_IWOTH;
constexpr mode_t kAnyExecute = S_IXUSR | S_IXGRP | S_IXOTH;
constexpr int kMaxLinks = 40;  // as many as the kernel follows

/// O_PATH: nothing happens to a FIFO or a device, and a program need not be readable to be run.
UniqueFd OpenPath(int directory, const std::string& path, int flags) {
    return UniqueFd(
        RetryOnEintr([&] { return ::openat(directory, path.c_str(), O_PATH | O_CLOEXEC | flags); }));
}

bool IsTrustedOwner(uid_t owner, uid_t user) {
    return owner == 0 || owner == user;
}

bool IsTrustedExecutable(const struct stat& file, uid_t user) {
    return S_ISREG(file.st_mode) && (file.st_mode & kAnyExecute) != 0 && IsTrustedOwner(file.st_uid, user) &&
           (file.st_mode & kGroupAndOthersWrite) == 0;
}

/// Whether somebody else may rename, remove or replace `entry` in `directory`.
bool OthersMayReplace(const struct stat& directory, const struct stat& entry, uid_t user) {
    if (!IsTrustedOwner(directory.st_uid, user)) {
        return true;
    }
    const bool writable = (directory.st_mode & kGroupAndOthersWrite) != 0;
    const bool protected_entry = (directory.st_mode & S_ISVTX) != 0 && IsTrustedOwner(entry.st_uid, user);
    return writable && !protected_entry;
}

/// What `path` names, if it is free of links and only root and `user` can change what its names lead to.
/// Going down, each directory is known to be safe from others before anything is looked up in it, so that
/// whole paths do as well as descriptors and cost a third of the calls.
std::optional<struct stat> LookUpPlainPath(const std::string& path, uid_t user) {
    struct stat here {};
    if (::lstat("/", &here) != 0) {
        return std::nullopt;
    }
    std::string prefix;
    for (std::size_t begin = 1, end = 0; begin < path.size(); begin = end + 1) {
        end = std::min(path.find('/', begin), path.size());
        const std::string_view name = std::string_view(path).substr(begin, end - begin);
        prefix.assign(path, 0, end);
        struct stat entry {};
        if (name.empty() || name == "." || name == ".." || ::lstat(prefix.c_str(), &entry) != 0 ||
            S_ISLNK(entry.st_mode) || OthersMayReplace(here, entry, user)) {
            return std::nullopt;
        }
        here = entry;
    }
    return here;
}

/// Follows a path as the kernel does, one name at a time, and looks at each directory that a name is looked
/// up in.
class PathWalk {
  public:
    /// Whether `path` leads to `file` through names that only root and this user can change.
    bool Reaches(const std::string& path, const struct stat& file) {
        bool good = Push(path);
        while (good && !names_.empty()) {
            const std::string name = std::move(names_.back());
            names_.pop_back();
            good = Step(name);
        }
        return good && here_stat_.st_dev == file.st_dev && here_stat_.st_ino == file.st_ino;
    }

  private:
    /// Puts the names of `path` in front of those still to be followed.
    bool Push(std::string_view path) {
        std::vector<std::string> names;
        if (path.substr(0, 1) == "/" && !EnterRoot()) {
            return false;
        }
        while (!path.empty()) {
            const std::size_t slash = path.find('/');
            if (slash != 0) {
                names.emplace_back(path.substr(0, slash));
            }
            path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        }
        names_.insert(names_.end(), names.rbegin(), names.rend());
        return true;
    }

    bool EnterRoot() {
        here_ = OpenPath(AT_FDCWD, "/", O_DIRECTORY);
        return here_.valid() && ::fstat(here_.get(), &here_stat_) == 0;
    }

    bool Step(const std::string& name) {
        UniqueFd entry = OpenPath(here_.get(), name, O_NOFOLLOW);
        struct stat entry_stat {};
        if (!entry.valid() || ::fstat(entry.get(), &entry_stat) != 0 ||
            OthersMayReplace(here_stat_, entry_stat, ::geteuid())) {
            return false;
        }
        if (S_ISLNK(entry_stat.st_mode)) {
            return Follow(entry);
        }
        here_ = std::move(entry);
        here_stat_ = entry_stat;
        return true;
    }

    bool Follow(const UniqueFd& link) {
        std::array<char, PATH_MAX> target{};
        const ssize_t length = ::readlinkat(link.get(), "", target.data(), target.size());
        return ++links_ <= kMaxLinks && length > 0 &&
               Push(std::string_view(target.data(), static_cast<std::size_t>(length)));
    }

    UniqueFd here_;
    struct stat here_stat_ {};
    std::vector<std::string> names_;  ///< still to be followed, the next one last
    int links_ = 0;
};

/// The path of a descriptor of this process, as children see it. Named by number as this /proc has it, which
/// may belong to another process namespace than getpid().
std::string DescriptorPath(const UniqueFd& file) {
    std::array<char, 32> self{};
    const ssize_t length = ::readlink("/proc/self", self.data(), self.size());
    if (length <= 0) {
        throw Exception(LastErrorText());
    }
    return "/proc/" + std::string(self.data(), static_cast<std::size_t>(length)) + "/fd/" +
           std::to_string(file.get());
}

/// Whether an open that failed with `error` says that there is nothing of that name.
bool IsAbsent(int error) {
    return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG;
}

bool IsLink(const std::string& path) {
    struct stat entry {};
    return ::lstat(path.c_str(), &entry) == 0 && S_ISLNK(entry.st_mode);
}

}  // namespace

CommandFile::CommandFile(UniqueFd file, std::string path, std::string exec_path)
    : file_(std::move(file)), path_(std::move(path)), exec_path_(std::move(exec_path)) {}

UniqueFd CommandFile::OpenTrusted(const std::string& path, uid_t user, struct stat& status) {
    UniqueFd file = OpenPath(AT_FDCWD, path, 0);
    const int error = errno;
    if (!file.valid() && IsAbsent(error) && !IsLink(path)) {
        return file;
    }
    if (!file.valid() && !IsAbsent(error) && error != ELOOP) {
        throw Exception(ErrorText(error));
    }
    if (!file.valid() || ::fstat(file.get(), &status) != 0 || !IsTrustedExecutable(status, user)) {
        throw Exception("not a trusted executable");
    }
    return file;
}

std::optional<CommandFile> CommandFile::Find(const std::string& directory, const std::string& name) {
    const std::string path = directory + "/" + name;
    const uid_t user = ::geteuid();
    const std::optional<struct stat> plain = LookUpPlainPath(path, user);
    if (plain.has_value() && IsTrustedExecutable(*plain, user)) {
        return CommandFile({}, path, path);
    }
    struct stat status {};
    UniqueFd file = OpenTrusted(path, user, status);
    if (!file.valid()) {
        return std::nullopt;
    }
    std::string exec_path = PathWalk().Reaches(path, status) ? path : DescriptorPath(file);
    return CommandFile(std::move(file), path, std::move(exec_path));
}

bool CommandFile::IsTrustedBy(uid_t user, const std::string& directory, const std::string& name) {
    struct stat status {};
    return OpenTrusted(directory + "/" + name, user, status).valid();
}

}  // namespace bootweave
