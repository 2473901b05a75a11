// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <sys/types.h>

#include "plugins/native_metadata.h"

namespace bootweave {

/// Memory through which a forked child hands an answer to its parent. Unlike a pipe it works when the child
/// has closed all descriptors, holds more than a buffer without anybody reading, and has no end that some
/// process left over could keep open. What stands in it is the child's to spoil, so the parent trusts
/// nothing.
class AnswerRegion {
  public:
    /// Maps memory that children forked from now on share. Check valid(); errno says why not.
    AnswerRegion();
    ~AnswerRegion();
    AnswerRegion(const AnswerRegion&) = delete;
    AnswerRegion& operator=(const AnswerRegion&) = delete;

    [[nodiscard]] bool valid() const { return header_ != nullptr; }

    /// In the child: puts the answer there. Afterwards the child ends.
    void Put(const MetadataAnswer& answer);

    /// In the parent, after the end of `child`: what it put there.
    ///
    /// \return nothing when there is no answer, or it is not one, or another process put it there
    [[nodiscard]] std::optional<MetadataAnswer> Get(pid_t child) const;

  private:
    struct Header {
        pid_t writer;
        std::uint32_t size;
    };

    [[nodiscard]] char* bytes() const;

    Header* header_ = nullptr;
};

}  // namespace bootweave
