// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

/// \file
/// The host's call that starts init scripts.

/// The three standard descriptors of the new program and its working directory; all stay the caller's.
struct ForkExecDescriptors {
    int root;  ///< the directory that the program starts in
    int input;
    int output;
    int error;
};

/// Starts a program with default signal dispositions, an empty signal mask and no descriptor but the three
/// given.
///
/// A word "++group=PATH" in the argument vector is a directive to this call: the program is started in the
/// control group PATH, made when missing, and the word is taken out. On a host where that cannot be done the
/// vector is passed on whole.
///
/// \param path     the program; no search, no shell for what is no program
/// \param argv     ended by null
/// \param options  0
/// \return the child's process id, for the caller to wait for; -1 with errno set when it cannot be started,
///         a program that cannot be executed included. Any thread.
pid_t Host_ForkExec(const char* path, char* const argv[], unsigned options,
                    const ForkExecDescriptors& descriptors);
