// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// \file
/// What the reader of native plugins' metadata answers, and the answer's bytes.

namespace bootweave {

/// More than any plugin has; a list without its end must not take the boot's memory.
inline constexpr std::size_t kMostMetadata = std::size_t{4} * 1024 * 1024;
/// A request's bytes, the path; the words of a command line are shorter.
inline constexpr std::size_t kMostRequest = std::size_t{256} * 1024;
/// An answer's bytes: the metadata and the loader's words, which may name the path twice.
inline constexpr std::size_t kMostAnswer = kMostMetadata + 4 * kMostRequest;

/// What a native plugin says of itself, copied. Fields that its version does not have are empty.
struct NativeMetadata {
    std::int32_t version = 0;
    bool has_apply_host_profile = false;
    bool run_once = false;
    std::string plugin_version;
    std::vector<std::string> provides_names;
    std::vector<std::string> requires_names;
    std::vector<std::string> required_flags;
    std::vector<std::string> disabling_flags;
    bool has_start = false;  ///< not asked by a boot: whoever runs the method finds out

    bool operator==(const NativeMetadata&) const = default;
};

/// How the reading of one object went.
enum class MetadataOutcome : std::uint8_t {
    kRead,         ///< `metadata` is set
    kNotOpened,    ///< `text` is the loader's
    kNoSymbol,     ///< `symbol` is missing, `text` is the loader's
    kBadVersion,   ///< the version is none of 1 to 4
    kTooLarge,     ///< there is more metadata than kMostMetadata
    kNoProcess,    ///< there was no process to load the object in; `text` is the system's
    kLoaderEnded,  ///< the process that loaded it ended without an answer; `raw_status` says how
};

/// The answer to one request.
struct MetadataAnswer {
    MetadataOutcome outcome = MetadataOutcome::kRead;
    std::int32_t raw_status = 0;  ///< as waitpid has it
    std::string symbol;
    std::string text;
    NativeMetadata metadata;

    bool operator==(const MetadataAnswer&) const = default;
};

/// The answer as bytes: its fields in their order. A number or a boolean is four bytes in this machine's
/// order, a string its length and its bytes, a list its length and its strings.
[[nodiscard]] std::string PackAnswer(const MetadataAnswer& answer);

/// Reverses PackAnswer. Trusts nothing: whoever wrote the bytes may have been overwritten.
///
/// \return nothing when the bytes are not exactly those of one answer
[[nodiscard]] std::optional<MetadataAnswer> UnpackAnswer(std::string_view bytes);

/// What is said of an object whose table of operations has none for a method: "<path>: has no operation for
/// <method>".
[[nodiscard]] std::string NoOperationText(const std::string& path, const std::string& method);

/// How a child that failed ended, from its raw wait status: "exited with signal: N", "exited with code N" or,
/// for one that did not end, "exited: <unknown failure>".
[[nodiscard]] std::string DescribeNativeEnd(int raw_status);

}  // namespace bootweave
