// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fstream>
#include <string>

/// \file
/// A file stream that replaces its destination in one step.

namespace bootweave {

/// An output file stream that never leaves a half-written destination behind: all is written to a temporary
/// file beside it, and only commit() puts that in its place.
///
/// Life:    construct -> open() or reopen() -> write -> commit(), or destroy to abandon what was written. A
/// stream is
///          not opened again after a commit.
/// Errors:  std::runtime_error, with the texts that each operation names.
/// Threads: one at a time.
class afstream : public std::basic_ofstream<char> {
  public:
    afstream() = default;
    /// Abandons what was not committed: the temporary file is removed, the destination stays as it is.
    ~afstream() override;
    afstream(const afstream&) = delete;
    afstream& operator=(const afstream&) = delete;

    /// Opens the stream on a new temporary file beside `path`; always for output, whatever `mode` says.
    ///
    /// \throws std::runtime_error  "unable to create temporary file to write '<path>': <error>" (errno holds
    /// the error),
    ///                             "failed to create temp file: <error>"
    void open(const char* path, openmode mode);

    /// Does what open() does and copies the content of `path` into the stream, so that what is written
    /// follows it. A file that is missing or empty is an error: this is for a log that has content.
    ///
    /// \throws std::runtime_error  those of open(), "failed to write to temp file: <error>"
    void reopen(const char* path, openmode mode);

    /// Closes the stream and puts the temporary file in the destination's place, with the permission bits of
    /// the file that it replaces. Without one the new file has mode 0600. Owner and group are not carried
    /// over.
    ///
    /// \throws std::runtime_error  "commit invoked on an unknown destination", "unable to rename
    /// '<temporary>' to
    ///         '<path>': <error>", and, with the new content in place, "failed to restore file permissions,
    ///         file permissions may be incorrect: <error>"
    void commit();

  private:
    void CloseBuffer();

    std::string temporary_path_;
    std::string destination_path_;
};

}  // namespace bootweave
