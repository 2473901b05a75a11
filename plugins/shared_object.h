// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// \file
/// Loading a shared object, which runs its code: for processes that have nothing to lose.

namespace bootweave {

/// Owns a loaded shared object and closes it at the end, which runs its destructors.
class SharedObject {
  public:
    /// Loads the object with lazy binding and global symbols. A path that leads to something else than a
    /// regular file counts as missing and is not opened: a FIFO would hold up whoever opens it.
    ///
    /// \throws Exception  with the loader's text
    explicit SharedObject(const std::string& path);
    ~SharedObject();
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;

    /// The address of a symbol; null for one that is defined so.
    ///
    /// \throws Exception  with the loader's text, when there is no such symbol
    [[nodiscard]] const void* Symbol(const char* name) const;

    /// Leaves the object loaded until the process ends.
    void Release() { handle_ = nullptr; }

  private:
    void* handle_;
};

}  // namespace bootweave
