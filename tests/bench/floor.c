// SPDX-License-Identifier: Apache-2.0
// The floor that a run is measured against: starts a program COUNT times, at most JOBS at once, and waits for
// each.
//
// usage: floor COUNT JOBS PROGRAM [ARGUMENT...]
// "%" in an argument stands for the number of the run.
#define _GNU_SOURCE
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>

extern char** environ;

static char g_expanded[16][4096];

/// The arguments with the number filled in, as an argv.
static char** Expand(char** words, long number) {
    static char* expanded[17];
    int index = 0;
    for (; words[index] != NULL && index < 16; ++index) {
        const char* const place = strchr(words[index], '%');
        expanded[index] = words[index];
        if (place != NULL) {
            snprintf(g_expanded[index], sizeof g_expanded[index], "%.*s%ld%s", (int)(place - words[index]),
                     words[index], number, place + 1);
            expanded[index] = g_expanded[index];
        }
    }
    expanded[index] = NULL;
    return expanded;
}

int main(int argc, char** argv) {
    if (argc < 4) {
        fputs("usage: floor COUNT JOBS PROGRAM [ARGUMENT...]\n", stderr);
        return 2;
    }
    const long count = strtol(argv[1], NULL, 10);
    const long jobs = strtol(argv[2], NULL, 10);
    long next = 0;
    long running = 0;
    long failed = 0;
    while (next < count || running > 0) {
        if (next < count && running < jobs) {
            char** const words = Expand(argv + 3, next);
            pid_t child = 0;
            const int error = posix_spawn(&child, words[0], NULL, NULL, words, environ);
            if (error != 0) {
                fprintf(stderr, "floor: %s: %s\n", words[0], strerror(error));
                return 1;
            }
            ++next;
            ++running;
            continue;
        }
        int status = 0;
        if (waitpid(-1, &status, 0) > 0) {
            --running;
            failed += status != 0;
        }
    }
    return failed != 0;
}
