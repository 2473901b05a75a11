// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <unistd.h>

#include "plugins/native_metadata.h"
#include "util/child_process.h"
#include "util/unique_fd.h"

namespace bootweave {

/// Reads the metadata of native plugins through a process of its own, which one program serves for all
/// objects of a run. This process never loads an object.
///
/// Life:    made without a process -> Read() starts one -> Stop(), or the end, ends it and reaps it.
/// Threads: one at a time.
/// Failure: a process that ends or does not answer costs the object that it was asked for; the next one gets
///          a new process.
class NativeMetadataReader {
  public:
    /// What is started, and how long an object may take.
    struct Options {
        std::string program = "/usr/lib/corvane/bootweave/nativeReader";
        std::chrono::milliseconds patience{std::chrono::seconds(10)};
        int output = STDOUT_FILENO;  ///< open descriptor for what objects print when they are loaded
    };

    NativeMetadataReader() : NativeMetadataReader(Options()) {}
    explicit NativeMetadataReader(Options options);
    ~NativeMetadataReader();
    NativeMetadataReader(const NativeMetadataReader&) = delete;
    NativeMetadataReader& operator=(const NativeMetadataReader&) = delete;

    /// Reads the metadata of the object at `path`. Blocks until it is there or the time is up.
    ///
    /// \throws InvalidPluginException  naming the path; the reason is the loader's text, "Unsupported API
    ///         version", "metadata is larger than 4 MiB", or "metadata reader " and what became of it:
    ///         "failed to spawn: <system error text>", "exited with signal: <number>", "exited with code
    ///         <number>", "exited: <unknown failure>", "did not answer within <time>" or "gave no proper
    ///         answer"
    /// \throws Exception  "Failed loading symbol: <symbol> Located at: <path> Reason: <loader's text>"
    [[nodiscard]] NativeMetadata Read(const std::string& path);

    /// Ends the process, if there is one, and waits for its end.
    void Stop();

  private:
    [[nodiscard]] bool IsReady() const;
    void Start(const std::string& path);
    [[nodiscard]] MetadataAnswer Ask(const std::string& path);
    [[nodiscard]] std::optional<int> End();

    Options options_;
    UniqueFd channel_;
    std::optional<ChildProcess> process_;
};

}  // namespace bootweave
