// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/tracer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/faults/calls.h"
#include "tests/faults/registers.h"

namespace bootweave::faults {
namespace {

constexpr unsigned long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                                   PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_TRACEEXIT;

/// How long nothing may happen before what is left counts as left behind, when all of it sleeps.
constexpr timespec kQuiet{.tv_sec = 0, .tv_nsec = 200'000'000};

std::string Under(pid_t pid, const char* name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

std::string TargetOf(const std::string& link) {
    std::error_code error;
    const auto target = std::filesystem::read_symlink(link, error);
    return error ? "" : target.string();
}

/// A text in another process's memory, as far as it can be read.
std::string TextAt(pid_t pid, unsigned long address) {
    std::string text;
    while (text.size() < 4096) {
        std::array<char, 64> piece{};
        // Up to the end of its aligned block: the next one may lie in a page that is not there.
        const std::size_t size = piece.size() - address % piece.size();
        iovec here{.iov_base = piece.data(), .iov_len = size};
        iovec there{.iov_base = reinterpret_cast<void*>(address), .iov_len = size};
        if (::process_vm_readv(pid, &here, 1, &there, 1, 0) <= 0) {
            return text;
        }
        const std::size_t length = ::strnlen(piece.data(), size);
        text.append(piece.data(), length);
        if (length < size) {
            return text;
        }
        address += size;
    }
    return text;
}

/// The value of an entry of the auxiliary vector; 0 when there is none.
unsigned long AuxiliaryValue(pid_t pid, unsigned long type) {
    std::ifstream file(Under(pid, "auxv"), std::ios::binary);
    std::array<unsigned long, 2> entry{};
    while (file.read(reinterpret_cast<char*>(entry.data()), sizeof entry)) {
        if (entry[0] == type) {
            return entry[1];
        }
    }
    return 0;
}

/// Where the mapped file that begins at `begin` ends: right after an exec, nothing else lies behind the
/// loader.
unsigned long EndOfMappedFile(pid_t pid, unsigned long begin) {
    std::ifstream maps(Under(pid, "maps"));
    std::string line;
    std::string file;
    unsigned long end = begin;
    while (std::getline(maps, line)) {
        std::istringstream fields(line);
        unsigned long from = 0;
        unsigned long to = 0;
        char dash = '\0';
        std::string mode;
        std::string offset;
        std::string device;
        std::string inode;
        std::string name;
        fields >> std::hex >> from >> dash >> to >> mode >> offset >> device >> inode >> name;
        if (from == begin) {
            file = name;
        }
        if (!file.empty() && name == file) {
            end = to;
        }
    }
    return end;
}

/// The state's letter in /proc, or '\0' when the process is gone.
char StateOf(pid_t pid) {
    std::ifstream file(Under(pid, "stat"));
    std::string text;
    std::getline(file, text);
    const std::size_t behind_name = text.rfind(") ");
    return behind_name == std::string::npos ? '\0' : text[behind_name + 2];
}

sigset_t ChildSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    return set;
}

}  // namespace

std::optional<int> Tracer::Run() {
    const sigset_t child_signal = ChildSignal();
    ::sigprocmask(SIG_BLOCK, &child_signal, nullptr);  // it is waited for
    if (!Start()) {
        return std::nullopt;
    }
    while (!threads_.empty() || !unnamed_.empty()) {
        int status = 0;
        // Until the program has ended there is always something to come.
        const pid_t pid = ::waitpid(-1, &status, __WALL | (status_.has_value() ? WNOHANG : 0));
        if (pid > 0) {
            Handle(pid, status);
        } else if (pid < 0 || !WaitForEvent()) {
            break;
        }
    }
    for (const auto& [pid, thread] : threads_) {
        if (pid == thread.process) {
            std::fprintf(report_, "left\t%s\t%d\n", thread.name.c_str(), pid);
        }
    }
    return status_;
}

/// Sleeps until a process changes its state. \return false when the program has ended and the others only
/// sleep
bool Tracer::WaitForEvent() {
    const sigset_t child_signal = ChildSignal();
    for (;;) {
        if (::sigtimedwait(&child_signal, nullptr, &kQuiet) == SIGCHLD || errno == EINTR) {
            return true;
        }
        if (AllSleep()) {
            return false;
        }
    }
}

bool Tracer::AllSleep() const {
    return std::all_of(threads_.begin(), threads_.end(),
                       [](const auto& entry) { return StateOf(entry.first) == 'S'; });
}

/// The program waits on a pipe until it is followed.
bool Tracer::Start() {
    std::array<int, 2> gate{};
    if (::pipe(gate.data()) != 0) {
        return false;
    }
    program_ = ::fork();
    if (program_ == 0) {
        char ignored = '\0';
        ::close(gate[1]);
        static_cast<void>(::read(gate[0], &ignored, 1) + ::close(gate[0]));
        const sigset_t child_signal = ChildSignal();
        ::sigprocmask(SIG_UNBLOCK, &child_signal, nullptr);
        std::vector<char*> argv;
        for (std::string& word : job_.argv) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(gate[0]);
    const bool seized = program_ > 0 && ::ptrace(PTRACE_SEIZE, program_, nullptr, kOptions) == 0;
    ::close(gate[1]);
    if (seized) {
        processes_[program_] = {};
        threads_[program_] = {.name = "main", .process = program_};
    }
    return seized;
}

void Tracer::Handle(pid_t pid, int status) {
    if (WIFSTOPPED(status)) {
        HandleStop(pid, status);
    } else {
        HandleEnd(pid, status);
    }
}

void Tracer::HandleEnd(pid_t pid, int status) {
    unnamed_.erase(pid);
    const auto found = threads_.find(pid);
    if (found == threads_.end()) {
        return;
    }
    if (processes_.erase(pid) > 0) {
        const bool by_signal = WIFSIGNALED(status);
        std::fprintf(report_, "end\t%s\t%s\t%d\n", found->second.name.c_str(), by_signal ? "signal" : "code",
                     by_signal ? WTERMSIG(status) : WEXITSTATUS(status));
    }
    threads_.erase(found);
    if (pid == program_) {
        status_ = status;
    }
}

void Tracer::HandleStop(pid_t pid, int status) {
    const auto found = threads_.find(pid);
    if (found == threads_.end()) {
        unnamed_.insert(pid);  // stays stopped until its parent's event
        return;
    }
    const int signal = WSTOPSIG(status);
    const int event = status >> 16;
    if (signal == (SIGTRAP | 0x80)) {
        HandleCall(pid, found->second);
    } else if (event == PTRACE_EVENT_FORK || event == PTRACE_EVENT_VFORK || event == PTRACE_EVENT_CLONE) {
        HandleNewChild(pid, event);
    } else if (event == PTRACE_EVENT_EXEC) {
        HandleExec(pid);
        return;
    } else if (event == PTRACE_EVENT_EXIT) {
        CountZombies(pid, found->second);
    } else if (event == PTRACE_EVENT_STOP && signal != SIGTRAP) {
        ::ptrace(PTRACE_LISTEN, pid, nullptr, nullptr);  // stopped as by a terminal
        return;
    } else if (event == 0) {
        Resume(pid, signal);
        return;
    }
    Resume(pid);
}

void Tracer::HandleNewChild(pid_t parent, int event) {
    unsigned long child = 0;
    if (::ptrace(PTRACE_GETEVENTMSG, parent, nullptr, &child) != 0) {
        return;
    }
    const pid_t pid = static_cast<pid_t>(child);
    const Thread& maker = threads_.at(parent);
    Process& process = processes_.at(maker.process);
    const std::string& first_name = threads_.at(maker.process).name;
    // The kernel tells of a fork by any other name as of a clone.
    const bool is_thread = event == PTRACE_EVENT_CLONE &&
                           std::filesystem::exists(Under(maker.process, "task") + "/" + std::to_string(pid));
    if (is_thread) {
        Adopt(pid, first_name + ":" + std::to_string(++process.threads), maker.process);
    } else {
        const std::string name = first_name + "/" + std::to_string(++process.children);
        processes_[pid] = process;
        processes_[pid].children = processes_[pid].threads = 0;
        Adopt(pid, name, pid);
    }
}

void Tracer::Adopt(pid_t child, const std::string& name, pid_t process) {
    threads_[child] = {.name = name, .process = process};
    if (unnamed_.erase(child) > 0) {
        Resume(child);
    }
}

/// The thread that executes a program becomes the process's first one.
void Tracer::HandleExec(pid_t pid) {
    const std::string path = TargetOf(Under(pid, "exe"));
    Thread& thread = threads_.at(pid);
    if (!job_.own.contains(path)) {
        std::fprintf(report_, "other\t%s\t%s\n", thread.name.c_str(), path.c_str());
        if (pid != program_) {
            threads_.erase(pid);
            processes_.erase(pid);
            ::ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
            return;
        }
    } else {
        std::fprintf(report_, "own\t%s\t%s\n", thread.name.c_str(), path.c_str());
    }
    Process& process = processes_.at(pid);
    process.loader_begin = AuxiliaryValue(pid, AT_BASE);
    process.loader_end = EndOfMappedFile(pid, process.loader_begin);
    process.has_begun = false;
    process.heap_end = 0;
    if (pid != program_) {
        thread.name += "=" + std::filesystem::path(path).filename().string();
    }
    thread.turns.clear();
    Resume(pid);
}

void Tracer::Resume(pid_t pid, int signal) {
    ::ptrace(FollowsCalls() ? PTRACE_SYSCALL : PTRACE_CONT, pid, nullptr, signal);
}

void Tracer::HandleCall(pid_t pid, Thread& thread) {
    __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) <= 0) {
        return;
    }
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
        EnterCall(pid, thread, info);
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT && thread.in_call) {
        LeaveCall(pid, thread, info);
    }
}

void Tracer::EnterCall(pid_t pid, Thread& thread, const __ptrace_syscall_info& info) {
    Process& process = processes_.at(thread.process);
    thread.in_call = true;
    thread.number = static_cast<long>(info.entry.nr);
    const bool by_loader =
        info.instruction_pointer >= process.loader_begin && info.instruction_pointer < process.loader_end;
    process.has_begun = process.has_begun || !by_loader;
    const std::string call = NameOfCall(thread.number, info.entry.args);
    const unsigned long turn = ++thread.turns[call];
    const auto& fault = job_.fault;
    thread.fails = !done_ && fault.has_value() && turn == fault->turn && thread.name == fault->name &&
                   call == fault->call;
    if (thread.fails || job_.record) {
        thread.subject = SubjectOf(pid, info);
    }
    if (job_.record) {
        std::ostringstream line;
        line << "call\t" << thread.name << "\t" << call << "\t" << turn << "\t"
             << (!process.has_begun ? "start"
                 : by_loader        ? "loader"
                                    : "own");
        thread.line = line.str();
    }
    if (thread.fails) {
        std::fprintf(report_, "fault\t%s\t%s\t%lu\t%s\n", thread.name.c_str(), call.c_str(), turn,
                     thread.subject.c_str());
        BeginFault(pid, thread);
    }
}

/// A descriptor is closed even when that fails, so that one takes place; and the end of the heap is not told
/// by an errno but by staying where it is.
void Tracer::BeginFault(pid_t pid, Thread& thread) {
    if (job_.fault->call != "close") {
        thread.fails = SkipCall(pid);
    }
}

bool Tracer::IsBrk(const Thread& thread) {
    return thread.number == SYS_brk;
}

void Tracer::LeaveCall(pid_t pid, Thread& thread, const __ptrace_syscall_info& info) {
    thread.in_call = false;
    Process& process = processes_.at(thread.process);
    if (std::exchange(thread.fails, false)) {
        done_ = true;
        static_cast<void>(SetResult(pid, IsBrk(thread) ? process.heap_end : -job_.fault->error));
    } else if (IsBrk(thread)) {
        process.heap_end = static_cast<long>(info.exit.rval);
    }
    if (job_.record) {
        std::fprintf(report_, "%s\t%lld\t%s\n", thread.line.c_str(), static_cast<long long>(info.exit.rval),
                     thread.subject.c_str());
    }
}

std::string Tracer::SubjectOf(pid_t pid, const __ptrace_syscall_info& info) const {
    const Call* const call = FindCall(static_cast<long>(info.entry.nr));
    if (call == nullptr || call->subject == Subject::kNothing) {
        return "";
    }
    const auto descriptor_target = [&](unsigned long number) {
        return TargetOf(Under(pid, "fd") + "/" + std::to_string(static_cast<int>(number)));
    };
    const unsigned long argument = info.entry.args[call->argument];
    if (call->subject == Subject::kDescriptor) {
        return descriptor_target(argument);
    }
    const std::string path = TextAt(pid, argument);
    // An empty one means the descriptor in front of it.
    return path.empty() && call->argument > 0 ? descriptor_target(info.entry.args[0]) : path;
}

/// At the end of a process's first thread, its children are still its own.
void Tracer::CountZombies(pid_t pid, const Thread& thread) {
    if (pid != thread.process) {
        return;
    }
    std::ifstream list(Under(pid, "task") + "/" + std::to_string(pid) + "/children");
    int zombies = 0;
    for (pid_t child = -1; list >> child;) {
        if (StateOf(child) == 'Z') {
            ++zombies;
        }
    }
    if (zombies > 0) {
        std::fprintf(report_, "zombies\t%s\t%d\n", thread.name.c_str(), zombies);
    }
}

}  // namespace bootweave::faults
