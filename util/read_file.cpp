// SPDX-License-Identifier: Apache-2.0
#include "util/read_file.h"

#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

/// Far more than any file that the host reads; what is larger must not take the boot's memory.
constexpr std::size_t kLargestFile = std::size_t{64} * 1024 * 1024;

}  // namespace

std::optional<std::string> ReadRegularFile(const std::string& path) {
    const UniqueFd file(
        RetryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat status {};
    if (!file.valid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    if (status.st_size > static_cast<off_t>(kLargestFile)) {
        errno = EFBIG;
        return std::nullopt;
    }
    // One byte more than the size lets the read that fills the file also see its end.
    std::string content(static_cast<std::size_t>(status.st_size) + 1, '\0');
    std::size_t used = 0;
    for (;;) {
        const ssize_t count =
            RetryOnEintr([&] { return ::read(file.get(), content.data() + used, content.size() - used); });
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        used += static_cast<std::size_t>(count);
        if (used > kLargestFile) {
            errno = EFBIG;
            return std::nullopt;
        }
        if (used == content.size()) {  // it grew while it was read
            content.resize(content.size() * 2);
        }
    }
    content.resize(used);
    return content;
}

}  // namespace bootweave
