// SPDX-License-Identifier: Apache-2.0
// Runs a program and prints the most memory that it had resident, in KiB. Small itself: a child's peak counts
// from before it became the program.
#define _GNU_SOURCE
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern char** environ;

int main(int argc, char** argv) {
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&quiet, 2, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    struct rusage usage;
    int status = 0;
    if (argc < 2 || posix_spawn(&child, argv[1], &quiet, NULL, argv + 1, environ) != 0 ||
        wait4(child, &status, 0, &usage) != child) {
        return 1;
    }
    printf("%ld\n", usage.ru_maxrss);
    return status != 0;
}
