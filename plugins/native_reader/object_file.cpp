// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_reader/object_file.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <vector>

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/retry.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using Entry = ElfW(Dyn);

/// More than any object has; a file that claims more is left to whoever loads it.
constexpr std::size_t kMostSegments = 64;
constexpr std::size_t kMostEntries = 256;
constexpr std::size_t kMostName = 64;

/// What the compiler's own start and end files put into an object that has _init: one function each.
constexpr std::size_t kUsualFunctions = sizeof(ElfW(Addr));

/// The tables of an object by which the loader decides what to run. Reads as little as it can.
class ObjectFile {
  public:
    explicit ObjectFile(const std::string& path)
        : file_(RetryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); })) {}

    /// \return false when the file has no such tables
    [[nodiscard]] bool Read() {
        struct stat status {};
        Header header{};
        if (!file_.valid() || ::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
            !ReadAt(0, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
            // Others have symbols that are unique in a process, and stay, or that code of theirs looks up.
            header.e_ident[EI_OSABI] != ELFOSABI_NONE || header.e_type != ET_DYN ||
            header.e_phentsize != sizeof(Segment) || header.e_phnum > kMostSegments) {
            return false;
        }
        segments_.resize(header.e_phnum);
        if (!ReadAt(header.e_phoff, segments_.data(), segments_.size() * sizeof(Segment))) {
            return false;
        }
        const auto dynamic = std::find_if(segments_.begin(), segments_.end(), [](const Segment& segment) {
            return segment.p_type == PT_DYNAMIC;
        });
        if (dynamic == segments_.end() || dynamic->p_filesz > kMostEntries * sizeof(Entry)) {
            return false;
        }
        entries_.resize(dynamic->p_filesz / sizeof(Entry));
        return ReadAt(dynamic->p_offset, entries_.data(), entries_.size() * sizeof(Entry));
    }

    [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

    [[nodiscard]] std::optional<std::size_t> Value(ElfW(Sxword) tag) const {
        const auto found = std::find_if(entries_.begin(), entries_.end(),
                                        [tag](const Entry& entry) { return entry.d_tag == tag; });
        return found != entries_.end() ? std::optional<std::size_t>(found->d_un.d_val) : std::nullopt;
    }

    /// A string of the table of strings; nothing when it is not there or long.
    [[nodiscard]] std::optional<std::string> Text(std::size_t place) const {
        const std::optional<std::size_t> table = Value(DT_STRTAB);
        const std::optional<off_t> offset = table.has_value() ? OffsetOf(*table + place) : std::nullopt;
        std::array<char, kMostName> text{};
        if (!offset.has_value() ||
            RetryOnEintr([&] { return ::pread(file_.get(), text.data(), text.size(), *offset); }) <= 0) {
            return std::nullopt;
        }
        const std::size_t size = ::strnlen(text.data(), text.size());
        return size < text.size() ? std::optional(std::string(text.data(), size)) : std::nullopt;
    }

  private:
    [[nodiscard]] bool ReadAt(std::size_t offset, void* to, std::size_t size) const {
        const ssize_t got =
            RetryOnEintr([&] { return ::pread(file_.get(), to, size, static_cast<off_t>(offset)); });
        return got == static_cast<ssize_t>(size);
    }

    /// Where in the file that stands which is loaded at this address.
    [[nodiscard]] std::optional<off_t> OffsetOf(std::size_t address) const {
        for (const Segment& segment : segments_) {
            if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
                address - segment.p_vaddr < segment.p_filesz) {
                return static_cast<off_t>(segment.p_offset + (address - segment.p_vaddr));
            }
        }
        return std::nullopt;
    }

    UniqueFd file_;
    std::vector<Segment> segments_;
    std::vector<Entry> entries_;
};

bool IsLoaded(const std::string& library) {
    void* const handle = ::dlopen(library.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    return handle != nullptr && ::dlclose(handle) == 0;
}

/// Whether the loader does no more for this entry than to look something up.
bool IsHarmless(const ObjectFile& object, const Entry& entry) {
    switch (entry.d_tag) {
        case DT_NEEDED: {
            const std::optional<std::string> library = object.Text(entry.d_un.d_val);
            return library.has_value() && IsLoaded(*library);
        }
        case DT_INIT_ARRAYSZ:
        case DT_FINI_ARRAYSZ:
            return entry.d_un.d_val <= (object.Value(DT_INIT).has_value() ? kUsualFunctions : 0);
        case DT_FLAGS_1:
            return (entry.d_un.d_val & ~std::size_t{DF_1_NOW}) == 0;
        case DT_AUXILIARY:
        case DT_FILTER:
            return false;
        default:
            return true;
    }
}

}  // namespace

bool LoadsWithoutRunningCode(const std::string& path) {
    ObjectFile object(path);
    return object.Read() && std::all_of(object.entries().begin(), object.entries().end(),
                                        [&](const Entry& entry) { return IsHarmless(object, entry); });
}

}  // namespace bootweave
