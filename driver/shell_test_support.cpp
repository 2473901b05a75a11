// SPDX-License-Identifier: Apache-2.0
#include "driver/shell_test_support.h"

#include <cerrno>
#include <string_view>

namespace bootweave {
namespace {

bool g_exhausted = false;
std::string g_substitute;
std::string g_asked;

}  // namespace

void ShellStub::Reset() {
    g_exhausted = false;
    g_substitute.clear();
    g_asked.clear();
}
void ShellStub::Exhaust() {
    g_exhausted = true;
}
void ShellStub::Substitute(const std::string& command) {
    g_substitute = command;
}
std::string ShellStub::asked() {
    return g_asked;
}

}  // namespace bootweave

// The linker gives these names to the wrapped function.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_execve(const char* path, char* const argv[], char* const environment[]);
int __wrap_execve(const char* path, char* const argv[], char* const environment[]);
// In a child that borrows this process's memory.
int __wrap_execve(const char* path, char* const argv[], char* const environment[]) {
    using bootweave::g_substitute;
    if (std::string_view(path) != "/bin/sh" || argv[1] == nullptr || argv[2] == nullptr) {
        return __real_execve(path, argv, environment);
    }
    bootweave::g_asked = argv[2];
    if (bootweave::g_exhausted) {
        errno = EAGAIN;
        return -1;
    }
    char* const command = g_substitute.empty() ? argv[2] : g_substitute.data();
    char* const words[] = {argv[0], argv[1], command, nullptr};
    return __real_execve(path, words, environment);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
