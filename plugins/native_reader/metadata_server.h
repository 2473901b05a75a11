// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "util/unique_fd.h"

/// \file
/// The program nativeReader: reads the metadata of native plugins for the boot, whose own process never loads
/// them. The boot starts it once, with a socket as descriptor 3, and asks for one object after the other:
///
///     request   a path                                   one message each, see plugins/message_channel.h
///     answer    a MetadataAnswer, see plugins/native_metadata.h
///
/// It ends when the other side closes the socket.
///
/// The program runs no plugin's code itself. For an object that has constructors or destructors it forks a
/// child that loads it, so that no object can spoil what is read from the next one, whatever these do to
/// their process. Nothing that the child started is left when the answer is given. An object without them, as
/// most are, it loads itself, which costs far less than a fork. One that is broken may end the program, which
/// costs that object only: the boot starts another.

namespace bootweave {

/// The descriptor that the program expects its socket at.
inline constexpr int kMetadataChannel = 3;

/// Answers requests until the other side closes the socket, also in the middle of one. One thread; makes this
/// process the reaper of its descendants, and ends all that it finds among them.
///
/// \return the exit status: 0, or 1 when a request was none
[[nodiscard]] int ServeMetadata(UniqueFd channel);

/// The program's whole work.
///
/// \return the exit status: that of ServeMetadata, or 2, with a line on standard error, when descriptor 3 is
///         no socket
[[nodiscard]] int RunNativeReader();

}  // namespace bootweave
