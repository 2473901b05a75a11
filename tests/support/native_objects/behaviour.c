// SPDX-License-Identifier: Apache-2.0
// A plugin that misbehaves when it is loaded (ON_LOAD), when it is closed (ON_CLOSE) or in its start
// operation (ON_START). Its name list is fine: it provides "up".
#define _GNU_SOURCE
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <bootweave/native_plugin.h>

#ifndef ON_LOAD
#define ON_LOAD Nothing
#endif
#ifndef ON_CLOSE
#define ON_CLOSE Nothing
#endif
#ifndef ON_START
#define ON_START Nothing
#endif
#define PERHAPS __attribute__((unused)) static void

PERHAPS Nothing(void) {}

PERHAPS Crash(void) {
    raise(SIGSEGV);
}

// Unlike a crash, what a sanitizer does not catch.
PERHAPS Abort(void) {
    raise(SIGABRT);
}

PERHAPS Leave(void) {
    exit(3);
}

PERHAPS LeaveWell(void) {
    exit(0);
}

PERHAPS Hang(void) {
    for (;;) {
        pause();
    }
}

PERHAPS Print(void) {
    static const char garbage[] = "\1\2\3\0garbage\xFF\n";
    for (int i = 0; i < 2; ++i) {
        if (write(i + 1, garbage, sizeof garbage - 1) < 0) {
            abort();
        }
    }
}

// Whatever descriptors there are: no answer is to be forged through one.
PERHAPS WriteEverywhere(void) {
    static const char garbage[64] = {1, 2, 3};
    for (int fd = 3; fd < 256; ++fd) {
        if (write(fd, garbage, sizeof garbage) > 0) {
            abort();
        }
    }
}

PERHAPS CloseAll(void) {
    for (int fd = 0; fd < 256; ++fd) {
        close(fd);
    }
}

// Everything that a process could hand on to the next object that is loaded into it.
PERHAPS Spoil(void) {
    const struct rlimit none = {0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    setrlimit(RLIMIT_FSIZE, &none);
    for (int number = 1; number < 32; ++number) {
        signal(number, SIG_IGN);
    }
    signal(SIGALRM, SIG_DFL);
    const struct itimerval soon = {{0, 0}, {0, 100000}};
    setitimer(ITIMER_REAL, &soon, NULL);
    if (chdir("/proc") != 0) {
        abort();
    }
}

// In the process that stays: writes its number into a file, which is there once it is whole.
__attribute__((unused)) static void Report(const char* path) {
    char part[4096];
    snprintf(part, sizeof part, "%s.part", path);
    FILE* file = fopen(part, "w");
    if (file == NULL || fprintf(file, "%d\n", (int)getpid()) < 0 || fclose(file) != 0 ||
        rename(part, path) != 0) {
        abort();
    }
}

// Leaves a process behind that the end of its parent, or a signal to its group, does not reach. Returns once
// the file that the environment names has its number.
PERHAPS LeaveProcess(void) {
    const char* path = getenv("NATIVE_TEST_FILE");
    if (path == NULL) {
        abort();
    }
    if (fork() == 0) {
        setsid();
        if (fork() == 0) {
            Report(path);
            Hang();
        }
        _exit(0);
    }
    while (access(path, F_OK) != 0) {
        usleep(1000);
    }
}

PERHAPS LeaveProcessAndHang(void) {
    LeaveProcess();
    Hang();
}

PERHAPS BecomeDaemon(void) {
    if (daemon(1, 1) != 0) {
        abort();
    }
}

PERHAPS KillGroup(void) {
    kill(0, SIGKILL);
}

PERHAPS KillReader(void) {
    kill(getppid(), SIGKILL);
    Hang();
}

PERHAPS StopReader(void) {
    kill(getppid(), SIGSTOP);
    Hang();
}

// What is shared with the reader is full of nonsense.
PERHAPS ForgeAnswer(void) {
    FILE* maps = fopen("/proc/self/maps", "r");
    char line[512];
    while (maps != NULL && fgets(line, sizeof line, maps) != NULL) {
        unsigned long first = 0;
        unsigned long last = 0;
        if (strstr(line, "rw-s") != NULL && sscanf(line, "%lx-%lx", &first, &last) == 2) {
            memset((void*)first, 0xFF, last - first);  // NOLINT: an address is what it is
            const int self = getpid();
            memcpy((void*)first, &self, sizeof self);
        }
    }
    _exit(0);
}

__attribute__((constructor)) static void Load(void) {
    ON_LOAD();
}

__attribute__((destructor)) static void Close(void) {
    ON_CLOSE();
}

static int Start(const char* name) {
    ON_START();
    return name[0] == '\0';
}

BOOTWEAVE_PLUGIN_NAMES(provided, "up");
BOOTWEAVE_PLUGIN_OPERATIONS(Start, NULL);
BOOTWEAVE_PLUGIN_METADATA(1, NULL, provided);
