// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include <sys/stat.h>
#include <sys/types.h>

#include "util/unique_fd.h"

/// \file
/// The file behind a command: found, judged, and held so that what was judged is what runs.

namespace bootweave {

/// A trusted executable: a regular file, executable, of root or of this process's user, that neither its
/// group nor others can write.
///
/// Trust belongs to the file, not to its name: between the judgement and the exec, somebody who can write one
/// of the directories on the way could put another file in its place. Opening the file first, judging it
/// through the descriptor and running that closes the gap, but a script then knows itself as
/// "/proc/PID/fd/N": each message of its shell starts with that, and it finds nothing that lies beside it. So
/// a file is run by its path where nobody but root and this user can change what the path names, which is
/// every properly installed host, and by its descriptor everywhere else.
///
/// Life: keep the object until the program has ended. A script is opened by its interpreter, some time after
/// the exec, and must still be there.
class CommandFile {
  public:
    /// Finds and judges the file `name` in `directory`, which is absolute. Links are followed.
    ///
    /// \return nothing when the directory has no such name
    /// \throws Exception  "not a trusted executable", also for a link that leads nowhere; the system's error
    ///                    text when that cannot be told
    [[nodiscard]] static std::optional<CommandFile> Find(const std::string& directory,
                                                         const std::string& name);

    /// Whether a process of `user` would find the file. Judges it, and does not make it ready to be run.
    ///
    /// \return false when the directory has no such name
    /// \throws Exception  as Find()
    [[nodiscard]] static bool IsTrustedBy(uid_t user, const std::string& directory, const std::string& name);

    /// Where it was found: what the program is to be told is its name.
    [[nodiscard]] const std::string& path() const { return path_; }

    /// The path to give to exec.
    [[nodiscard]] const std::string& exec_path() const { return exec_path_; }

  private:
    CommandFile(UniqueFd file, std::string path, std::string exec_path);
    [[nodiscard]] static UniqueFd OpenTrusted(const std::string& path, uid_t user, struct stat& status);

    UniqueFd file_;  ///< invalid where the path does as well
    std::string path_;
    std::string exec_path_;
};

}  // namespace bootweave
