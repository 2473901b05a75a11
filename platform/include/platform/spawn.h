// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

/// \file
/// Process spawning with file actions. Status codes: 0 is success, others are read with
/// MantleuserStatus_CodeToString.
///
/// A child starts with default signal dispositions, an empty signal mask, and exactly the descriptors that
/// duplicate actions name. Threads: one thread at a time per set of actions.

/// A set of descriptor duplications to make in the child, in order. The caller provides the memory; what it
/// holds belongs to Init and Destroy.
struct MantleuserCompat_SpawnFileActions {
    struct Duplicate {
        int from;
        int to;
    };
    Duplicate* actions;
    int capacity;
    int count;
};

/// Makes `actions` ready for up to `capacity` actions. \return 0 or a status code
int MantleuserCompat_SpawnFileActionsInit(MantleuserCompat_SpawnFileActions* actions, int capacity);

/// Adds the duplication of `from` onto `to`. \return 0, or a status code when there is no room or a
/// descriptor is bad
int MantleuserCompat_SpawnFileActionsAddDup2(MantleuserCompat_SpawnFileActions* actions, int from, int to);

/// Starts the program at `path`.
///
/// \param pid         receives the child's process id; the caller waits for it
/// \param actions     stay the caller's
/// \param attributes  null
/// \param argv,envp   ended by null
/// \return 0 once the program runs, else a status code; a program that cannot be executed is a failure here
int MantleuserCompat_Spawn(pid_t* pid, const char* path, const MantleuserCompat_SpawnFileActions* actions,
                           const void* attributes, char* const argv[], char* const envp[]);

/// Frees what Init allocated; harmless when repeated.
void MantleuserCompat_SpawnFileActionsDestroy(MantleuserCompat_SpawnFileActions* actions);

/// The text of a status code, without end of line; lives for the whole run.
const char* MantleuserStatus_CodeToString(int status);
