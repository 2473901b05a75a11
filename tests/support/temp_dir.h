// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace bootweave {

/// A directory of its own for one test, removed with all its content at the end.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    /// The path of `name` inside.
    [[nodiscard]] std::string File(const std::string& name) const { return path_ + "/" + name; }
    /// Writes a file with mode 0644 and returns its path.
    std::string WriteFile(const std::string& name, const std::string& content) const;
    /// Writes an executable file (mode 0755) and returns its path.
    std::string WriteProgram(const std::string& name, const std::string& content) const;
    /// The names inside, sorted.
    [[nodiscard]] std::vector<std::string> Names() const;

  private:
    std::string path_;
};

/// The whole content of a file; fails the test when it cannot be read.
[[nodiscard]] std::string ReadFile(const std::string& path);

}  // namespace bootweave
