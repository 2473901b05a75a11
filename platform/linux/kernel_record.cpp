// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel_record.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "platform/linux/log_internal.h"
#include "platform/linux/log_text.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {

int WriteKernelRecord(int priority, std::string_view text) {
    LineBuffer record;
    AppendKernelRecord(record, priority, text);
    const UniqueFd node(
        RetryOnEintr([] { return ::open(g_log_paths.kernel_log, O_WRONLY | O_APPEND | O_CLOEXEC); }));
    if (!node.valid()) {
        return errno;
    }
    const std::string_view bytes = record.view();
    const ssize_t written = RetryOnEintr([&] { return ::write(node.get(), bytes.data(), bytes.size()); });
    if (written < 0) {
        return errno;
    }
    return static_cast<std::size_t>(written) == bytes.size() ? 0 : EIO;
}

}  // namespace bootweave
