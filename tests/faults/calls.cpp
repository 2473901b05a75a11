// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls.h"

#include <algorithm>
#include <array>

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>

namespace bootweave::faults {
namespace {

using enum Subject;

#define CALL(name, ...) \
    { #name, SYS_##name, __VA_ARGS__ }

constexpr auto kCalls = std::to_array<Call>({
    CALL(accept4, kDescriptor, 0), CALL(bind, kDescriptor, 0), CALL(brk, kNothing, 0), CALL(chdir, kPath, 0),
        CALL(clock_nanosleep, kNothing, 0), CALL(clone, kNothing, 0), CALL(clone3, kNothing, 0),
        CALL(close, kDescriptor, 0), CALL(close_range, kNothing, 0), CALL(connect, kDescriptor, 0),
        CALL(copy_file_range, kDescriptor, 0), CALL(dup, kDescriptor, 0), CALL(dup3, kDescriptor, 0),
        CALL(eventfd2, kNothing, 0), CALL(execve, kPath, 0), CALL(exit, kNothing, 0),
        CALL(exit_group, kNothing, 0), CALL(faccessat, kPath, 1), CALL(faccessat2, kPath, 1),
        CALL(fchdir, kDescriptor, 0), CALL(fchmod, kDescriptor, 0), CALL(fchmodat, kPath, 1),
        CALL(fcntl, kDescriptor, 0), CALL(fdatasync, kDescriptor, 0), CALL(flock, kDescriptor, 0),
        CALL(fstat, kDescriptor, 0), CALL(fstatfs, kDescriptor, 0), CALL(fsync, kDescriptor, 0),
        CALL(ftruncate, kDescriptor, 0), CALL(futex, kNothing, 0), CALL(getcwd, kNothing, 0),
        CALL(getdents64, kDescriptor, 0), CALL(getegid, kNothing, 0), CALL(geteuid, kNothing, 0),
        CALL(getgid, kNothing, 0), CALL(getpgid, kNothing, 0), CALL(getpid, kNothing, 0),
        CALL(getppid, kNothing, 0), CALL(getrandom, kNothing, 0), CALL(getrlimit, kNothing, 0),
        CALL(getsockname, kDescriptor, 0), CALL(getsockopt, kDescriptor, 0), CALL(gettid, kNothing, 0),
        CALL(getuid, kNothing, 0), CALL(ioctl, kDescriptor, 0), CALL(kill, kNothing, 0),
        CALL(listen, kDescriptor, 0), CALL(lseek, kDescriptor, 0), CALL(madvise, kNothing, 0),
        CALL(memfd_create, kNothing, 0), CALL(mkdirat, kPath, 1), CALL(mmap, kNothing, 0),
        CALL(mprotect, kNothing, 0), CALL(mremap, kNothing, 0), CALL(munmap, kNothing, 0),
        CALL(newfstatat, kPath, 1), CALL(openat, kPath, 1), CALL(pidfd_open, kNothing, 0),
        CALL(pipe2, kNothing, 0), CALL(ppoll, kNothing, 0), CALL(prctl, kNothing, 0),
        CALL(pread64, kDescriptor, 0), CALL(prlimit64, kNothing, 0), CALL(pwrite64, kDescriptor, 0),
        CALL(read, kDescriptor, 0), CALL(readlinkat, kPath, 1), CALL(readv, kDescriptor, 0),
        CALL(recvfrom, kDescriptor, 0), CALL(recvmsg, kDescriptor, 0), CALL(renameat, kPath, 1),
        CALL(renameat2, kPath, 1), CALL(restart_syscall, kNothing, 0), CALL(rseq, kNothing, 0),
        CALL(rt_sigaction, kNothing, 0), CALL(rt_sigprocmask, kNothing, 0), CALL(rt_sigreturn, kNothing, 0),
        CALL(sched_getaffinity, kNothing, 0), CALL(sched_yield, kNothing, 0), CALL(sendmsg, kDescriptor, 0),
        CALL(sendto, kDescriptor, 0), CALL(set_robust_list, kNothing, 0), CALL(set_tid_address, kNothing, 0),
        CALL(setpgid, kNothing, 0), CALL(setsid, kNothing, 0), CALL(setsockopt, kDescriptor, 0),
        CALL(shutdown, kDescriptor, 0), CALL(sigaltstack, kNothing, 0), CALL(socket, kNothing, 0),
        CALL(socketpair, kNothing, 0), CALL(statfs, kPath, 0), CALL(statx, kPath, 1),
        CALL(sysinfo, kNothing, 0), CALL(tgkill, kNothing, 0), CALL(umask, kNothing, 0),
        CALL(uname, kNothing, 0), CALL(unlinkat, kPath, 1), CALL(wait4, kNothing, 0),
        CALL(waitid, kNothing, 0), CALL(write, kDescriptor, 0), CALL(writev, kDescriptor, 0),
#if defined(__x86_64__)  // newer processors have only the general form of each of these
        CALL(access, kPath, 0), CALL(arch_prctl, kNothing, 0), CALL(chmod, kPath, 0),
        CALL(dup2, kDescriptor, 0), CALL(fork, kNothing, 0), CALL(getpgrp, kNothing, 0),
        CALL(lstat, kPath, 0), CALL(mkdir, kPath, 0), CALL(open, kPath, 0), CALL(pipe, kNothing, 0),
        CALL(poll, kNothing, 0), CALL(readlink, kPath, 0), CALL(rename, kPath, 0), CALL(rmdir, kPath, 0),
        CALL(stat, kPath, 0), CALL(time, kNothing, 0), CALL(unlink, kPath, 0), CALL(vfork, kNothing, 0),
#endif
});

#undef CALL

std::string Manner(long number, const std::uint64_t* arguments) {
    if (number == SYS_futex) {
        const std::uint64_t operation = arguments[1] & static_cast<std::uint64_t>(FUTEX_CMD_MASK);
        return operation == FUTEX_WAIT || operation == FUTEX_WAIT_BITSET ? " wait" : "";
    }
    if (number == SYS_fcntl) {
        return arguments[1] == F_DUPFD || arguments[1] == F_DUPFD_CLOEXEC ? " duplicate" : "";
    }
    return number == SYS_openat && (arguments[2] & O_CREAT) != 0 ? " create" : "";
}

}  // namespace

const Call* FindCall(long number) {
    const auto* const found = std::find_if(kCalls.begin(), kCalls.end(),
                                           [number](const Call& call) { return call.number == number; });
    return found == kCalls.end() ? nullptr : found;
}

std::string NameOfCall(long number, const std::uint64_t* arguments) {
    const Call* const call = FindCall(number);
    if (call == nullptr) {
        return "call " + std::to_string(number);
    }
    return call->name + Manner(number, arguments);
}

}  // namespace bootweave::faults
