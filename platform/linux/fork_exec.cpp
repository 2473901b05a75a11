// SPDX-License-Identifier: Apache-2.0
#include "platform/fork_exec.h"

#include <array>
#include <cerrno>
#include <optional>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "platform/linux/control_group.h"
#include "util/child_process.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

constexpr std::string_view kGroupDirective = "++group=";

/// What the child needs, all of it made before the fork: it must not allocate.
struct Plan {
    const char* path;
    std::vector<char*> whole;        // as given
    std::vector<char*> undirected;   // without the directive
    UniqueFd group;                  // invalid: no group
    std::array<UniqueFd, 4> copies;  // input, output, error and root, all above the standard numbers
    UniqueFd report;                 // the writing end for an error number; closed by a successful exec
};

Plan MakePlan(const char* path, char* const argv[]) {
    Plan plan{.path = path, .whole = {}, .undirected = {}, .group = {}, .copies = {}, .report = {}};
    for (; *argv != nullptr; ++argv) {
        const std::string_view word = *argv;
        plan.whole.push_back(*argv);
        if (word.starts_with(kGroupDirective) && plan.whole.size() > 1) {
            plan.group =
                OpenControlGroup(kControlGroupRoot, std::string(word.substr(kGroupDirective.size())));
        } else {
            plan.undirected.push_back(*argv);
        }
    }
    plan.whole.push_back(nullptr);
    plan.undirected.push_back(nullptr);
    return plan;
}

bool CopyDescriptors(const ForkExecDescriptors& descriptors, Plan& plan) {
    const std::array given{descriptors.input, descriptors.output, descriptors.error, descriptors.root};
    for (std::size_t i = 0; i < given.size(); ++i) {
        plan.copies[i].Reset(::fcntl(given[i], F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        if (!plan.copies[i].valid()) {
            return false;
        }
    }
    return true;
}

/// In the child: neither a lock nor memory from here on.
int BecomeProgram(const Plan& plan) {
    constexpr char kThisProcess = '0';
    const bool in_group = plan.group.valid() && ::write(plan.group.get(), &kThisProcess, 1) == 1;
    const bool ready =
        ::fchdir(plan.copies[3].get()) == 0 && ::dup2(plan.copies[0].get(), STDIN_FILENO) >= 0 &&
        ::dup2(plan.copies[1].get(), STDOUT_FILENO) >= 0 && ::dup2(plan.copies[2].get(), STDERR_FILENO) >= 0;
    if (ready) {
        ResetSignals();
        // The report's end must outlive this: all others here are closed by the exec.
        ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
        ::execv(plan.path, in_group ? plan.undirected.data() : plan.whole.data());
    }
    const int error = errno;
    static_cast<void>(RetryOnEintr([&] { return ::write(plan.report.get(), &error, sizeof error); }));
    return 1;
}

/// The error number that the child reports; 0 when its end was closed by the exec.
int ReadReport(const UniqueFd& report) {
    int error = 0;
    const ssize_t count = RetryOnEintr([&] { return ::read(report.get(), &error, sizeof error); });
    return count == sizeof error ? error : 0;
}

}  // namespace
}  // namespace bootweave

using namespace bootweave;

pid_t Host_ForkExec(const char* path, char* const argv[], unsigned options,
                    const ForkExecDescriptors& descriptors) {
    if (options != 0) {
        errno = EINVAL;
        return -1;
    }
    Plan plan = MakePlan(path, argv);
    Pipe pipe = Pipe::Create();
    if (!pipe.read_end.valid() || !CopyDescriptors(descriptors, plan)) {
        return -1;
    }
    // Above the standard numbers, like the rest.
    plan.report.Reset(::fcntl(pipe.write_end.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    pipe.write_end.Reset();
    if (!plan.report.valid()) {
        return -1;
    }
    std::optional<ChildProcess> child = ChildProcess::ForkToExec([&plan] { return BecomeProgram(plan); });
    if (!child.has_value()) {
        return -1;
    }
    plan.report.Reset();
    const int error = ReadReport(pipe.read_end);
    if (error != 0) {
        static_cast<void>(child->Wait());
        errno = error;
        return -1;
    }
    return child->Release();
}
