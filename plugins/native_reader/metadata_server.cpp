// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_reader/metadata_server.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <optional>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "plugins/message_channel.h"
#include "plugins/native_metadata.h"
#include "plugins/native_reader/answer_region.h"
#include "plugins/native_reader/load_metadata.h"
#include "plugins/native_reader/object_file.h"
#include "util/child_process.h"
#include "util/error_text.h"
#include "util/retry.h"
#include "util/signals.h"

namespace bootweave {
namespace {

/// In the forked child: everything that an object may spoil is this process's own.
int LoadInChild(pid_t reader, UniqueFd& channel, const std::string& path, AnswerRegion& region) {
    channel.Reset();
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != reader) {
        return 1;  // it ended before that call
    }
    ::setpgid(0, 0);  // a signal that the object sends to its group reaches only what it started itself
    ResetChangedSignals();
    region.Put(LoadMetadata(path));
    return 0;
}

/// Sleeps until the child has ended. \return false when the other side has gone first
bool AwaitEnd(const UniqueFd& channel, const ChildProcess& child) {
    const UniqueFd end = child.OpenEndFd();
    if (!end.valid()) {
        return true;  // on a kernel without them: the child is waited for, and the boot's time runs out
    }
    pollfd wanted[] = {{.fd = channel.get(), .events = POLLIN, .revents = 0},
                       {.fd = end.get(), .events = POLLIN, .revents = 0}};
    RetryOnEintr([&] { return ::poll(wanted, 2, -1); });
    return wanted[1].revents != 0;
}

std::vector<pid_t> OwnChildren() {
    std::vector<pid_t> children;
    siginfo_t ignored;
    if (::waitid(P_ALL, 0, &ignored, WEXITED | WNOHANG | WNOWAIT) != 0) {
        return children;  // no list to be read for the usual object, which leaves none
    }
    std::ifstream list("/proc/thread-self/children");
    for (pid_t child = -1; list >> child;) {
        children.push_back(child);
    }
    return children;
}

/// Ends whatever the last child has started and left behind. As the reaper of its descendants this process
/// becomes the parent of each one whose own parent ends.
void EndStrays() {
    for (std::vector<pid_t> strays = OwnChildren(); !strays.empty(); strays = OwnChildren()) {
        for (const pid_t stray : strays) {
            ::kill(stray, SIGKILL);
        }
        for (const pid_t stray : strays) {
            RetryOnEintr([stray] { return ::waitpid(stray, nullptr, 0); });
        }
    }
}

MetadataAnswer NoProcess() {
    MetadataAnswer answer;
    answer.outcome = MetadataOutcome::kNoProcess;
    answer.text = LastErrorText();
    return answer;
}

MetadataAnswer Ended(int raw_status) {
    MetadataAnswer answer;
    answer.outcome = MetadataOutcome::kLoaderEnded;
    answer.raw_status = raw_status;
    return answer;
}

/// \return nothing when the other side has gone meanwhile
std::optional<MetadataAnswer> LoadInNewProcess(const std::string& path, UniqueFd& channel) {
    AnswerRegion region;
    if (!region.valid()) {
        return NoProcess();
    }
    const pid_t reader = ::getpid();
    auto child = ChildProcess::Fork([&] { return LoadInChild(reader, channel, path, region); });
    if (!child.has_value()) {
        return NoProcess();
    }
    const pid_t pid = child->pid();
    if (!AwaitEnd(channel, *child)) {
        child.reset();
        EndStrays();
        return std::nullopt;
    }
    const std::optional<int> raw_status = child->Wait();
    EndStrays();
    if (raw_status != 0) {
        return Ended(raw_status.value_or(SIGKILL));
    }
    const std::optional<MetadataAnswer> answer = region.Get(pid);
    return answer.has_value() && answer->outcome != MetadataOutcome::kLoaderEnded ? answer : Ended(0);
}

}  // namespace

int ServeMetadata(UniqueFd channel) {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    NoteChangedSignals();
    for (;;) {
        const ReceivedMessage request = ReceiveMessage(channel, kMostRequest);
        if (request.status != ReceivedMessage::Status::kWhole) {
            return request.status == ReceivedMessage::Status::kClosed ? 0 : 1;
        }
        const std::optional<MetadataAnswer> answer = LoadsWithoutRunningCode(request.bytes)
                                                         ? LoadMetadata(request.bytes)
                                                         : LoadInNewProcess(request.bytes, channel);
        if (!answer.has_value() || !SendMessage(channel, PackAnswer(*answer))) {
            return 0;
        }
    }
}

int RunNativeReader() {
    struct stat status {};
    if (::fstat(kMetadataChannel, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        std::fputs("nativeReader: is for bootweave, which starts it with a socket as descriptor 3\n", stderr);
        return 2;
    }
    ::fcntl(kMetadataChannel, F_SETFD, FD_CLOEXEC);
    return ServeMetadata(UniqueFd(kMetadataChannel));
}

}  // namespace bootweave
