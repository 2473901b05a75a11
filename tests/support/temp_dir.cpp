// SPDX-License-Identifier: Apache-2.0
#include "tests/support/temp_dir.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "gtest/gtest.h"

namespace bootweave {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "bootweave-test.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::abort();
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::WriteFile(const std::string& name, const std::string& content) const {
    const std::string path = File(name);
    std::ofstream(path, std::ios::binary) << content;
    std::filesystem::permissions(path, std::filesystem::perms(0644));
    return path;
}

std::string TempDir::WriteProgram(const std::string& name, const std::string& content) const {
    const std::string path = WriteFile(name, content);
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    return path;
}

std::vector<std::string> TempDir::Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace bootweave
