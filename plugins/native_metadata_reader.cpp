// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_metadata_reader.h"

#include <cerrno>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "plugins/message_channel.h"
#include "plugins/native_reader/metadata_server.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/retry.h"

namespace bootweave {
namespace {

using Status = ReceivedMessage::Status;

/// For a reader to end what it has started, and itself, once nobody listens any more.
constexpr std::chrono::seconds kGrace(2);

[[noreturn]] void FailReader(const std::string& path, const std::string& how) {
    throw InvalidPluginException(path, "metadata reader " + how);
}

std::string TimeText(std::chrono::milliseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return seconds == time ? std::to_string(seconds.count()) + " s" : std::to_string(time.count()) + " ms";
}

NativeMetadata Judge(const std::string& path, MetadataAnswer answer) {
    switch (answer.outcome) {
        case MetadataOutcome::kRead:
            break;
        case MetadataOutcome::kNotOpened:
            throw InvalidPluginException(path, answer.text);
        case MetadataOutcome::kNoSymbol:
            throw Exception("Failed loading symbol: " + answer.symbol + " Located at: " + path +
                            " Reason: " + answer.text);
        case MetadataOutcome::kBadVersion:
            throw InvalidPluginException(path, "Unsupported API version");
        case MetadataOutcome::kTooLarge:
            throw InvalidPluginException(path, "metadata is larger than 4 MiB");
        case MetadataOutcome::kNoProcess:
            FailReader(path, "failed to spawn: " + answer.text);
        case MetadataOutcome::kLoaderEnded:
            FailReader(path, DescribeNativeEnd(answer.raw_status));
    }
    return std::move(answer.metadata);
}

}  // namespace

NativeMetadataReader::NativeMetadataReader(Options options) : options_(std::move(options)) {}

NativeMetadataReader::~NativeMetadataReader() {
    Stop();
}

NativeMetadata NativeMetadataReader::Read(const std::string& path) {
    if (!IsReady()) {
        Stop();
        Start(path);
    }
    return Judge(path, Ask(path));
}

void NativeMetadataReader::Stop() {
    static_cast<void>(End());
}

/// Whether there is a process and it waits for a request: one that has ended since the last answer, or has
/// more to say, is no fault of the next object.
bool NativeMetadataReader::IsReady() const {
    pollfd wanted{.fd = channel_.get(), .events = POLLIN, .revents = 0};
    return channel_.valid() && RetryOnEintr([&] { return ::poll(&wanted, 1, 0); }) == 0;
}

void NativeMetadataReader::Start(const std::string& path) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        FailReader(path, "failed to spawn: " + LastErrorText());
    }
    UniqueFd own_end(ends[0]);
    const UniqueFd its_end(ends[1]);
    const UniqueFd no_input(RetryOnEintr([] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }));
    SpawnOptions options;
    options.path = options_.program;
    options.argv = {options_.program};
    options.inherit_environment = true;
    options.descriptors = {{no_input.get(), STDIN_FILENO},
                           {options_.output, STDOUT_FILENO},
                           {STDERR_FILENO, STDERR_FILENO},
                           {its_end.get(), kMetadataChannel}};
    auto process = no_input.valid() ? ChildProcess::Spawn(options) : std::nullopt;
    if (!process.has_value()) {
        FailReader(path, "failed to spawn: " + LastErrorText());
    }
    process_.emplace(std::move(*process));
    channel_ = std::move(own_end);
}

MetadataAnswer NativeMetadataReader::Ask(const std::string& path) {
    const Deadline deadline = std::chrono::steady_clock::now() + options_.patience;
    // A request that cannot be sent has no answer either, which then says why.
    static_cast<void>(SendMessage(channel_, path, deadline));
    ReceivedMessage message = ReceiveMessage(channel_, kMostAnswer, deadline);
    if (message.status == Status::kWhole) {
        if (auto answer = UnpackAnswer(message.bytes); answer.has_value()) {
            return std::move(*answer);
        }
    }
    const std::optional<int> raw_status = End();
    if (message.status == Status::kTimedOut) {
        FailReader(path, "did not answer within " + TimeText(options_.patience));
    }
    if (message.status != Status::kClosed) {
        FailReader(path, "gave no proper answer");
    }
    constexpr int kNotEnded = 0x7F;  // as a stopped child has it
    FailReader(path, DescribeNativeEnd(raw_status.value_or(kNotEnded)));
}

/// Ends the process: it does so itself once the channel is closed, or is killed.
///
/// \return its raw wait status, or nothing when there was none or it cannot be had
std::optional<int> NativeMetadataReader::End() {
    channel_.Reset();
    if (!process_.has_value()) {
        return std::nullopt;
    }
    ChildProcess::WaitResult end = process_->WaitFor(kGrace);
    if (end.timed_out) {
        ::kill(process_->pid(), SIGKILL);
        end.raw = process_->Wait();
    }
    process_.reset();
    return end.raw;
}

}  // namespace bootweave
