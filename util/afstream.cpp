// SPDX-License-Identifier: Apache-2.0
#include "util/afstream.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <sys/stat.h>
#include <unistd.h>

#include "util/error_text.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

constexpr const char* kPatternSuffix = ".XXXXXX";

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

/// Raises with errno as it was when the failure was found: callers put its text into their own messages.
[[noreturn]] void Raise(const std::string& message, int error) {
    errno = error;
    throw std::runtime_error(message);
}

/// The pattern that mkstemp fills in.
Text MakePattern(const char* path) {
    const std::size_t size = std::strlen(path) + std::strlen(kPatternSuffix) + 1;
    Text pattern(static_cast<char*>(std::calloc(size, 1)));
    if (pattern == nullptr) {
        throw std::runtime_error("insufficient memory to allocate buffer");
    }
    const int length = std::snprintf(pattern.get(), size, "%s%s", path, kPatternSuffix);
    if (length < 0 || static_cast<std::size_t>(length) != size - 1) {
        throw std::runtime_error("unable to allocate mkstemp pattern");
    }
    return pattern;
}

}  // namespace

afstream::~afstream() {
    if (!temporary_path_.empty()) {
        CloseBuffer();
        ::unlink(temporary_path_.c_str());
    }
}

void afstream::CloseBuffer() {
    if (rdbuf()->is_open() && rdbuf()->close() == nullptr) {
        setstate(failbit);
    }
}

void afstream::open(const char* path, openmode mode) {
    const Text name = MakePattern(path);
    UniqueFd temporary(::mkostemp(name.get(), O_CLOEXEC));
    if (!temporary.valid()) {
        const int error = errno;
        Raise("unable to create temporary file to write '" + std::string(path) + "': " + ErrorText(error),
              error);
    }
    temporary.Reset();  // only the name is kept; the stream opens the file by it
    temporary_path_ = name.get();
    destination_path_ = path;
    if (rdbuf()->open(temporary_path_, mode | out) == nullptr) {
        setstate(failbit);
    }
    if (!good()) {
        const int error = errno;
        Raise("failed to create temp file: " + ErrorText(error), error);
    }
}

void afstream::reopen(const char* path, openmode mode) {
    open(path, mode);
    std::ifstream old(path, std::ios::in | std::ios::binary);
    *this << old.rdbuf();  // sets the failbit when it inserts nothing, but not when it breaks off
    if (good() && old.rdbuf()->sgetc() != traits_type::eof()) {
        setstate(badbit);
    }
    const int error = errno;
    old.close();
    if (!good()) {
        Raise("failed to write to temp file: " + ErrorText(error), error);
    }
}

void afstream::commit() {
    if (temporary_path_.empty() || destination_path_.empty()) {
        throw std::runtime_error("commit invoked on an unknown destination");
    }
    flush();
    CloseBuffer();
    errno = 0;
    struct stat old {};
    const int stat_error = ::stat(destination_path_.c_str(), &old) == 0 ? 0 : errno;
    if (::rename(temporary_path_.c_str(), destination_path_.c_str()) != 0) {
        const int error = errno;
        Raise(
            "unable to rename '" + temporary_path_ + "' to '" + destination_path_ + "': " + ErrorText(error),
            error);
    }
    if (stat_error == ENOENT) {
        return;  // nothing to take permissions from
    }
    constexpr mode_t kPermissionBits = 07777;
    int error = stat_error;
    if (error == 0 && ::chmod(destination_path_.c_str(), old.st_mode & kPermissionBits) != 0) {
        error = errno;
    }
    if (error != 0) {
        Raise("failed to restore file permissions, file permissions may be incorrect: " + ErrorText(error),
              error);
    }
}

}  // namespace bootweave
