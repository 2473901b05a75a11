// SPDX-License-Identifier: Apache-2.0
#include "driver/shell_test_support.h"

#include <cerrno>
#include <string_view>

#include <spawn.h>

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

int __real_posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const argv[], char* const environment[]);
int __wrap_posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const argv[], char* const environment[]);
int __wrap_posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const argv[], char* const environment[]) {
    using bootweave::g_substitute;
    if (std::string_view(path) != "/bin/sh" || argv[1] == nullptr || argv[2] == nullptr) {
        return __real_posix_spawn(pid, path, actions, attributes, argv, environment);
    }
    bootweave::g_asked = argv[2];
    if (bootweave::g_exhausted) {
        return EAGAIN;
    }
    char* const command = g_substitute.empty() ? argv[2] : g_substitute.data();
    char* const words[] = {argv[0], argv[1], command, nullptr};
    return __real_posix_spawn(pid, path, actions, attributes, words, environment);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
