// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_init_script.h"

#include <algorithm>
#include <fstream>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

#include "driver/discovery.h"
#include "util/error_text.h"

namespace bootweave {
namespace {

constexpr std::string_view kMark = "#!";

/// The program that the first line names; empty when it names none.
std::string Interpreter(const std::string& path) {
    constexpr std::size_t kLongest = 256;  // as much as the kernel looks at
    std::string line(kLongest, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(line.data(), static_cast<std::streamsize>(line.size()));
    line.resize(static_cast<std::size_t>(file.gcount()));
    line.resize(std::min(line.size(), line.find('\n')));
    const std::size_t start = std::min(line.size(), line.find_first_not_of(" \t", kMark.size()));
    return line.substr(start, line.find_first_of(" \t", start) - start);
}

}  // namespace

bool IsScript(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;  // to open something else could take for ever
    }
    std::string start(kMark.size(), '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(start.data(), static_cast<std::streamsize>(start.size()));
    return start == kMark;
}

void CheckInitScript(const std::string& path, const VerifiedPlugin& script, Findings& findings) {
    constexpr mode_t kAnyExecute = S_IXUSR | S_IXGRP | S_IXOTH;
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && (status.st_mode & kAnyExecute) == 0) {
        AddFinding(findings, script, Severity::kError, FindingKind::kInitScript, "not executable");
    }
    const std::string interpreter = Interpreter(path);
    if (interpreter.empty()) {
        AddFinding(findings, script, Severity::kError, FindingKind::kInitScript,
                   "its first line names no interpreter");
    } else if (::access(interpreter.c_str(), X_OK) != 0) {
        AddFinding(findings, script, Severity::kError, FindingKind::kInitScript,
                   "cannot use its interpreter " + interpreter + ": " + LastErrorText());
    }
    if (IsEarlyService(script.name)) {
        AddFinding(findings, script, Severity::kWarning, FindingKind::kInitScript,
                   "daemon runs leave out a script of this name, because init runs start it themselves");
    }
}

}  // namespace bootweave
