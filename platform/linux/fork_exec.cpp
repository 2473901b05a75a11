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
#include "util/signals.h"
#include "util/standard_streams.h"
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
};

Plan MakePlan(const char* path, char* const argv[]) {
    Plan plan{.path = path, .whole = {}, .undirected = {}, .group = {}, .copies = {}};
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

/// In the child: neither a lock nor memory from here on. \return an error number
int BecomeProgram(const Plan& plan) {
    constexpr char kThisProcess = '0';
    const bool in_group = plan.group.valid() && ::write(plan.group.get(), &kThisProcess, 1) == 1;
    const bool ready =
        ::fchdir(plan.copies[3].get()) == 0 && ::dup2(plan.copies[0].get(), STDIN_FILENO) >= 0 &&
        ::dup2(plan.copies[1].get(), STDOUT_FILENO) >= 0 && ::dup2(plan.copies[2].get(), STDERR_FILENO) >= 0;
    if (ready) {
        CloseDescriptorsFrom(STDERR_FILENO + 1);
        ResetChangedSignals();
        ::execv(plan.path, in_group ? plan.undirected.data() : plan.whole.data());
    }
    return errno;
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
    if (!CopyDescriptors(descriptors, plan)) {
        return -1;
    }
    std::optional<ChildProcess> child = ChildProcess::ForkToExec([&plan] { return BecomeProgram(plan); });
    return child.has_value() ? child->Release() : -1;
}
