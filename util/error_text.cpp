// SPDX-License-Identifier: Apache-2.0
#include "util/error_text.h"

#include <cerrno>
#include <cstring>

namespace bootweave {

std::string ErrorText(int error) {
    const int saved = errno;
    // Not strerror: its message catalogue has locks that a fork may have left held.
    const char* text = ::strerrordesc_np(error);
    std::string result = text != nullptr ? text : "Unknown error " + std::to_string(error);
    errno = saved;
    return result;
}

std::string LastErrorText() {
    return ErrorText(errno);
}

}  // namespace bootweave
