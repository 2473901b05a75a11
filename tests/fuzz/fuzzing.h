// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "util/unique_fd.h"

/// \file
/// What the fuzzers share. Each one defines LLVMFuzzerTestOneInput, feeds the bytes to one reader of the
/// product and checks what must hold whatever they are.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace bootweave {

/// Ends the process, which the fuzzer reports with the input, unless `holds`.
inline void Check(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

/// The input as text.
inline std::string_view Text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// A regular file without a place in any directory.
class MemoryFile {
  public:
    explicit MemoryFile(std::string_view content);
    /// Where this process can open it.
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(file_.get()); }

  private:
    UniqueFd file_;
};

}  // namespace bootweave
