// SPDX-License-Identifier: Apache-2.0
#include "driver/run_once_record.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include <boost/algorithm/string/trim.hpp>

#include <zlib.h>

#include "util/read_file.h"
#include "util/replace_file.h"
#include "util/scope_guard.h"

namespace bootweave {
namespace {

constexpr std::string_view kPrefix = "bootweave.run-once=";
constexpr int kBufferSize = 4096;
constexpr int kWindowBits = 15;
constexpr int kGzipFormat = 16;  // asks zlib for the gzip format instead of its own
/// More than any host's keys together. What a small file can unpack to has no bound of its own.
constexpr std::size_t kLargestContent = std::size_t{64} * 1024 * 1024;

/// What a packed text unpacks to, as far as it can be unpacked.
struct Unpacked {
    std::string text;
    bool whole = false;  ///< undamaged to the end
};

/// Whether what is left to unpack begins like another member of the file, and not like something else that
/// somebody has put behind the last one.
bool IsAtMember(const z_stream& stream) {
    constexpr std::array<Bytef, 3> kMemberStart{0x1f, 0x8b, Z_DEFLATED};
    return stream.avail_in >= kMemberStart.size() &&
           std::equal(kMemberStart.begin(), kMemberStart.end(), stream.next_in);
}

/// Through zlib itself: the filter of the stream library throws away what it unpacked right before the
/// damage.
Unpacked Unpack(std::string packed) {
    z_stream stream{};
    if (::inflateInit2(&stream, kWindowBits + kGzipFormat) != Z_OK) {
        return {};
    }
    const ScopeGuard end([&] { ::inflateEnd(&stream); });
    stream.next_in = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_in = static_cast<uInt>(packed.size());
    Unpacked result;
    int status = Z_OK;
    while (status == Z_OK && result.text.size() < kLargestContent) {
        std::array<char, kBufferSize> buffer{};
        stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
        stream.avail_out = kBufferSize;
        status = ::inflate(&stream, Z_NO_FLUSH);
        result.text.append(buffer.data(), kBufferSize - stream.avail_out);
        if (status == Z_STREAM_END && IsAtMember(stream)) {
            status = ::inflateReset(&stream);
        }
    }
    result.whole = status == Z_STREAM_END;
    return result;
}

/// With the default level and strategy; zlib's own header has no name, no comment and no time.
std::optional<std::string> Pack(std::string text) {
    constexpr int kMemoryLevel = 8;
    z_stream stream{};
    if (::deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kWindowBits + kGzipFormat, kMemoryLevel,
                       Z_DEFAULT_STRATEGY) != Z_OK) {
        return std::nullopt;
    }
    const ScopeGuard end([&] { ::deflateEnd(&stream); });
    std::string packed(::deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(text.data());
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    if (::deflate(&stream, Z_FINISH) != Z_STREAM_END) {
        return std::nullopt;
    }
    packed.resize(stream.total_out);
    return packed;
}

}  // namespace

void ReadRunOnceRecord(std::set<std::string>& keys, const std::string& path) {
    const std::optional<std::string> packed = ReadRegularFile(path);
    if (!packed.has_value()) {
        return;
    }
    const Unpacked record = Unpack(*packed);
    if (!record.text.starts_with(kPrefix)) {
        return;
    }
    std::string_view rest = std::string_view(record.text).substr(kPrefix.size());
    while (!rest.empty()) {
        const std::size_t comma = rest.find(',');
        if (comma == std::string_view::npos && !record.whole) {
            return;  // the key that the damage cut
        }
        std::string key = boost::algorithm::trim_copy(std::string(rest.substr(0, comma)));
        if (!key.empty()) {
            keys.insert(std::move(key));
        }
        rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
    }
}

void WriteRunOnceRecord(const std::set<std::string>& keys, const std::string& path) {
    std::string content(kPrefix);
    for (const std::string& key : keys) {
        content += key + ",";
    }
    content += "\n";
    if (const std::optional<std::string> packed = Pack(std::move(content))) {
        static_cast<void>(ReplaceFile(path, *packed));
    }
}

}  // namespace bootweave
