// SPDX-License-Identifier: Apache-2.0
#pragma once

/// \file
/// The host's logging facility: one process-wide log with up to two outputs, the system log and standard
/// output, set up through dictionaries of string keys.
///
/// Levels: 2 is an error, 3 a warning, 5 a notice. Level "info" of an output lets all three through.
/// Threads: messages may be logged from any thread and in the child of a fork made by any thread; no lock
///          is taken. Setting up belongs to one thread, before others exist.
/// Failure: nothing here raises, and no failed output ever fails the caller.

struct Dictionary;
struct LogOutput;

/// Makes an empty dictionary; free it with Dictionary_Free.
Dictionary* Dictionary_Create();
/// Sets `key` to a copy of `value`.
void Dict_SetString(Dictionary* dictionary, const char* key, const char* value);
/// Sets `key` to `value`.
void Dict_SetBool(Dictionary* dictionary, const char* key, bool value);
/// Removes every key.
void Dictionary_Clear(Dictionary* dictionary);
/// Frees the dictionary; null is accepted.
void Dictionary_Free(Dictionary* dictionary);

/// What the log knows about the program; all texts are copied.
void Log_SetProductInfo(const char* name, const char* version, const char* build_number,
                        const char* compilation_option);

/// Connects the log to the system log.
///
/// \param identifier  the name in front of each message, unless "log.syslogID" gives one
/// \param dictionary  "log.syslogID" and "log.syslogLevel" are read
/// \param flags       0
/// \return false when the output cannot be made; a log daemon that does not listen yet is no failure
bool Log_InitWithSyslogInt(const char* identifier, const Dictionary* dictionary, int flags);

/// Makes an output that writes lines to standard output.
///
/// \param dictionary  "log.stdoutLevel", "log.useTimeStamps.stdio" and "log.useMilliseconds.stdio" are read
/// \return null when it cannot be made; hand it to Log_AddOutput, which takes it over
LogOutput* Log_NewStdioOutput(const char* identifier, const Dictionary* dictionary, int flags);

/// Adds an output to the log, which owns it from then on; there is room for one.
///
/// \return false when it is refused, and freed
bool Log_AddOutput(LogOutput* output);

/// The level from which messages go to standard error as well; -1 (the only value used) is never.
void Log_SetStderrLevel(LogOutput* output, int level);

/// Logs one message at a numeric level, printf style.
void Log_Level(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Logs one message at level 3.
void Warning(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Sends one message to the system log alone, at a syslog priority (1 is alert, 3 is error).
void Log_Syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
