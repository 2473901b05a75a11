// SPDX-License-Identifier: Apache-2.0
#include "util/replace_file.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

std::optional<std::string> ReadLink(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    if (length < 0) {
        return std::nullopt;
    }
    return std::string(target, static_cast<std::size_t>(length));
}

/// Where the content of `path` really is: links at its end are followed, also to a file that is not there
/// yet.
std::optional<std::string> FollowLinks(std::string path) {
    constexpr int kMostLinks = 40;  // as many as the kernel follows
    for (int links = 0; links < kMostLinks; ++links) {
        const std::optional<std::string> target = ReadLink(path);
        if (!target.has_value()) {
            return path;
        }
        path = target->starts_with('/') ? *target : DirectoryOf(path) + "/" + *target;
    }
    errno = ELOOP;
    return std::nullopt;
}

bool WriteAll(const UniqueFd& file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written =
            RetryOnEintr([&] { return ::write(file.get(), content.data(), content.size()); });
        if (written < 0) {
            return false;
        }
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

/// \return nothing, with errno set, when the file that is there does not tell
std::optional<mode_t> ModeFor(const std::string& path) {
    constexpr mode_t kPermissionBits = 07777;
    struct stat old {};
    if (::stat(path.c_str(), &old) == 0) {
        return old.st_mode & kPermissionBits;
    }
    if (errno != ENOENT) {
        return std::nullopt;
    }
    const mode_t mask = ::umask(0);  // the one way to ask for it
    ::umask(mask);
    return 0644 & ~mask;
}

bool Fill(const UniqueFd& file, std::string_view content, std::optional<mode_t> mode) {
    return mode.has_value() && WriteAll(file, content) && ::fchmod(file.get(), *mode) == 0 &&
           RetryOnEintr([&] { return ::fsync(file.get()); }) == 0;
}

/// The rename itself must be on the disk too; a file system that cannot say so has still made it.
void SyncDirectory(const std::string& path) {
    const UniqueFd directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.valid()) {
        ::fsync(directory.get());
    }
}

}  // namespace

bool ReplaceFile(const std::string& path, std::string_view content) {
    const std::optional<std::string> real = FollowLinks(path);
    if (!real.has_value()) {
        return false;
    }
    std::string temporary = *real + ".XXXXXX";
    const UniqueFd file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.valid()) {
        return false;
    }
    if (!Fill(file, content, ModeFor(*real)) || ::rename(temporary.c_str(), real->c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        errno = error;
        return false;
    }
    SyncDirectory(DirectoryOf(*real));
    return true;
}

}  // namespace bootweave
