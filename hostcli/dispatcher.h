// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <memory>

#include "platform/cmdgen.h"

namespace bootweave {

/// The directories that hold the host management commands, in the order of look-up: the first one that has a
/// command answers it.
inline constexpr std::array kCommandDirectories{
    "/usr/lib/corvane/hostcli",
    "/usr/lib/corvane/hostcli/int",
    "/usr/lib/corvane/hostcli/int/ext",
    "/usr/lib/corvane/hostcli/ext",
};

/// The host's command dispatcher, with the directories of its commands.
///
/// Lives in the executor process only, on its event-loop thread: no lock guards it.
class HostcliDispatcher : public Plinth::Cmdgen::Dispatcher {
  public:
    /// Adds the command directories; one that cannot be added costs a level 2 line.
    HostcliDispatcher();

    /// The process's dispatcher, made on first use and alive until exit.
    [[nodiscard]] static std::shared_ptr<HostcliDispatcher> Instance();
};

}  // namespace bootweave
