// SPDX-License-Identifier: Apache-2.0
#include "tests/fuzz/fuzzing.h"

#include <sys/mman.h>
#include <unistd.h>

namespace bootweave {

MemoryFile::MemoryFile(std::string_view content) : file_(::memfd_create("fuzz", MFD_CLOEXEC)) {
    Check(::write(file_.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()),
          "the input is in memory");
}

}  // namespace bootweave
