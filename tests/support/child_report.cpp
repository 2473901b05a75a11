// SPDX-License-Identifier: Apache-2.0
#include "tests/support/child_report.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>

#include <unistd.h>

#include "tests/support/test_main.h"

namespace bootweave {
namespace {

std::string StatusField(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        if (word == name + ":" && status >> word) {
            return word;
        }
    }
    return "none";
}

/// Looked at before the report's own file is opened.
std::map<int, std::string> OpenDescriptors() {
    std::map<int, std::string> open;
    for (int fd = 0; fd < 256; ++fd) {
        std::error_code missing;
        const auto target = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), missing);
        if (!missing) {
            open.emplace(fd, target.string());
        }
    }
    return open;
}

int Report(int argc, char** argv) {
    const std::string_view out = argc > 0 ? argv[0] : "";
    if (out.substr(0, 6) != "--out=") {
        return 98;
    }
    const auto descriptors = OpenDescriptors();
    std::ofstream report(std::string(out.substr(6)));
    for (int i = 1; i < argc; ++i) {
        report << "argument " << argv[i] << '\n';
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        report << "variable " << *variable << '\n';
    }
    for (const auto& [number, file] : descriptors) {
        report << "descriptor " << number << ' ' << file << '\n';
    }
    report << "directory " << std::filesystem::current_path().string() << '\n';
    report << "blocked " << StatusField("SigBlk") << '\n';
    report << "ignored " << StatusField("SigIgn") << '\n';
    return report.flush() ? 0 : 97;
}

const bool kRegistered = RegisterChildRole("report", Report);

}  // namespace

ChildReport ReadChildReport(const std::string& path) {
    static_cast<void>(kRegistered);
    std::map<std::string, std::vector<std::string>> lines;
    std::ifstream file(path);
    for (std::string key, value; file >> key && file.get() != EOF && std::getline(file, value);) {
        lines[key].push_back(value);
    }
    const auto one = [&lines](const std::string& key) {
        return lines[key].size() == 1 ? lines[key].front() : "missing";
    };
    return {lines["argument"], lines["variable"], lines["descriptor"],
            one("directory"),  one("blocked"),    one("ignored")};
}

}  // namespace bootweave
