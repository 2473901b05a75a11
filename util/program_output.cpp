// SPDX-License-Identifier: Apache-2.0
#include "util/program_output.h"

#include <array>

#include <unistd.h>

#include "util/error_text.h"
#include "util/exception.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

std::string ReadToEnd(const UniqueFd& pipe) {
    std::string output;
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t count = RetryOnEintr([&] { return ::read(pipe.get(), buffer.data(), buffer.size()); });
        if (count < 0) {
            throw Exception(LastErrorText());
        }
        if (count == 0) {
            return output;
        }
        output.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

std::optional<ProgramOutput> ReadProgram(SpawnOptions options) {
    Pipe pipe = Pipe::Create();
    if (!pipe.read_end.valid()) {
        return std::nullopt;
    }
    options.descriptors.emplace_back(pipe.write_end.get(), STDOUT_FILENO);
    std::optional<ChildProcess> child = ChildProcess::Spawn(options);
    if (!child.has_value()) {
        return std::nullopt;
    }
    pipe.write_end.Reset();
    std::string text = ReadToEnd(pipe.read_end);
    return ProgramOutput{std::move(text), child->Wait()};
}

}  // namespace bootweave
