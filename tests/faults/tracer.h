// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <sys/ptrace.h>
#include <sys/types.h>

/// \file
/// Runs a program and makes one system call fail, of it or of a process that it has forked, by number.
///
/// A call is named by who makes it, what it is, and which of those it is: "main openat 3" is the third openat
/// of the program's first thread. Names of threads and processes do not depend on process ids:
///
///     main              the program
///     main:1            its first other thread
///     main/2            the second process that it has forked
///     main/2/1          the first one that this one has forked
///     main/2=reader     main/2 after it has become the program /usr/lib/.../reader
///
/// Processes that become a program that is none of the own ones are let go at that moment.

namespace bootweave::faults {

/// The call that is to fail.
struct Fault {
    std::string name;    ///< of the thread
    std::string call;    ///< of the system
    unsigned long turn;  ///< from 1
    int error;           ///< the errno
};

/// What to run and what to do to it.
struct Job {
    std::vector<std::string> argv;  ///< the program, an absolute path, and its arguments
    std::set<std::string> own;      ///< paths of the programs whose processes are followed
    std::optional<Fault> fault;     ///< without one nothing is disturbed
    bool record = false;            ///< whether each call is reported
};

/// One run of a job. Single-threaded; owns all children of this process meanwhile.
///
/// The report has a line per event, its fields separated by tabs:
///
///     call NAME CALL TURN PHASE RESULT SUBJECT
///                                      with `record`; PHASE is "start" while the dynamic loader makes the
///                                      program, "loader" when it makes a call later, else "own"; SUBJECT is
///                                      what the call is about, such as a path
///     fault NAME CALL TURN SUBJECT     the fault came to pass
///     own NAME PATH                    a process has become one of the own programs
///     other NAME PATH                  ... or another one, and is not followed any more
///     end NAME code|signal NUMBER      a followed process has ended
///     zombies NAME COUNT               children that a process has not waited for at its end
///     left NAME PID                    a followed process runs on after the program's end
class Tracer {
  public:
    Tracer(Job job, std::FILE* report) : job_(std::move(job)), report_(report) {}
    Tracer(const Tracer&) = delete;
    Tracer& operator=(const Tracer&) = delete;

    /// Runs the program to its end, and until no followed process is left that still does something. What is
    /// left then runs on.
    ///
    /// \return the program's raw wait status, or nothing, with errno set, when it cannot be started
    [[nodiscard]] std::optional<int> Run();

  private:
    struct Process {
        int children = 0;
        int threads = 0;
        long heap_end = 0;               ///< as brk has told it
        bool has_begun = false;          ///< code behind the loader has made a call
        unsigned long loader_begin = 0;  ///< where the dynamic loader lies in memory
        unsigned long loader_end = 0;
    };
    struct Thread {
        std::string name;
        pid_t process;
        bool in_call = false;
        bool fails = false;  ///< the call that it is in is the one
        long number = 0;
        std::string line{};  ///< of the report, up to the result
        std::string subject{};
        std::map<std::string, unsigned long> turns{};
    };

    [[nodiscard]] static bool IsBrk(const Thread& thread);
    bool Start();
    void Handle(pid_t pid, int status);
    void HandleStop(pid_t pid, int status);
    void HandleEnd(pid_t pid, int status);
    void HandleNewChild(pid_t parent, int event);
    void HandleExec(pid_t pid);
    void Adopt(pid_t child, const std::string& name, pid_t process);
    void Resume(pid_t pid, int signal = 0);
    void HandleCall(pid_t pid, Thread& thread);
    void EnterCall(pid_t pid, Thread& thread, const __ptrace_syscall_info& info);
    void LeaveCall(pid_t pid, Thread& thread, const __ptrace_syscall_info& info);
    void BeginFault(pid_t pid, Thread& thread);
    std::string SubjectOf(pid_t pid, const __ptrace_syscall_info& info) const;
    void CountZombies(pid_t pid, const Thread& thread);
    bool WaitForEvent();
    [[nodiscard]] bool AllSleep() const;
    [[nodiscard]] bool FollowsCalls() const { return job_.record || (job_.fault.has_value() && !done_); }

    Job job_;
    std::FILE* report_;
    pid_t program_ = -1;
    std::optional<int> status_;
    bool done_ = false;
    std::map<pid_t, Process> processes_;
    std::map<pid_t, Thread> threads_;
    std::set<pid_t> unnamed_;  ///< stopped before their parent's event has told what they are
};

}  // namespace bootweave::faults
