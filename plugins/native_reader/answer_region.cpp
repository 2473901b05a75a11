// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_reader/answer_region.h"

#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace bootweave {
namespace {

/// Only what is written takes memory.
constexpr std::size_t kRegionSize = kMostAnswer + 4096;

}  // namespace

AnswerRegion::AnswerRegion() {
    void* memory = ::mmap(nullptr, kRegionSize, PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory != MAP_FAILED) {
        header_ = static_cast<Header*>(memory);
    }
}

AnswerRegion::~AnswerRegion() {
    if (valid()) {
        ::munmap(header_, kRegionSize);
    }
}

char* AnswerRegion::bytes() const {
    return reinterpret_cast<char*>(header_ + 1);
}

void AnswerRegion::Put(const MetadataAnswer& answer) {
    const std::string packed = PackAnswer(answer);
    if (packed.size() > kMostAnswer) {
        return;
    }
    std::memcpy(bytes(), packed.data(), packed.size());
    header_->size = static_cast<std::uint32_t>(packed.size());
    // An object that becomes a daemon while it is loaded goes on in another process; its parent's end counts.
    header_->writer = ::getpid();
}

std::optional<MetadataAnswer> AnswerRegion::Get(pid_t child) const {
    const Header header = *header_;
    if (header.writer != child || header.size > kMostAnswer) {
        return std::nullopt;
    }
    return UnpackAnswer({bytes(), header.size});
}

}  // namespace bootweave
