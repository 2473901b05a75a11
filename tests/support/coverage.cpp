// SPDX-License-Identifier: Apache-2.0
//
// Linked into the programs of a build that counts what runs: a process writes its counts when it returns from
// main or calls exit; here it does so, too, when it ends by _exit or becomes another program.

#include <unistd.h>

extern "C" {

void __gcov_dump();
void __gcov_reset();

// The linker gives these names to the wrapped functions.
// NOLINTBEGIN(bugprone-reserved-identifier)
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);
void __wrap__exit(int status) {
    __gcov_dump();
    __gcov_reset();  // the memory may be the parent's, which still counts
    __real__exit(status);
}

int __real_execve(const char* path, char* const argv[], char* const environment[]);
int __wrap_execve(const char* path, char* const argv[], char* const environment[]);
int __wrap_execve(const char* path, char* const argv[], char* const environment[]) {
    __gcov_dump();
    __gcov_reset();  // or what runs after a failure would not be written any more
    return __real_execve(path, argv, environment);
}

int __real_execv(const char* path, char* const argv[]);
int __wrap_execv(const char* path, char* const argv[]);
int __wrap_execv(const char* path, char* const argv[]) {
    __gcov_dump();
    __gcov_reset();
    return __real_execv(path, argv);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
