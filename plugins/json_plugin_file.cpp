// SPDX-License-Identifier: Apache-2.0
#include "plugins/json_plugin_file.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include <boost/json.hpp>
#include <boost/json/basic_parser_impl.hpp>

#include "util/exception.h"
#include "util/read_file.h"

// The one file that parses JSON.

namespace bootweave {
namespace {

namespace json = boost::json;

constexpr std::int32_t kOldestVersion = 1;
constexpr std::int32_t kNewestVersion = 4;

constexpr JSONPluginKey kMetadata{"", "metadata"};
constexpr JSONPluginKey kVersion{"metadata", "version"};
constexpr JSONPluginKey kRequires{"metadata", "requires"};
constexpr JSONPluginKey kProvides{"metadata", "provides"};
constexpr JSONPluginKey kRequiredFlags{"metadata", "required_flags", 3};
constexpr JSONPluginKey kDisablingFlags{"metadata", "disabling_flags", 3};
constexpr JSONPluginKey kRunOnce{"metadata", "run_once", 3};
constexpr JSONPluginKey kPluginVersion{"metadata", "plugin_version", 3};
constexpr JSONPluginKey kOperations{"", "operations"};
constexpr JSONPluginKey kStart{"operations", "start"};
constexpr JSONPluginKey kApplyHostProfile{"operations", "apply_host_profile", 2};

constexpr std::array kKeys{kMetadata,      kVersion,        kRequires,        kProvides,
                           kRequiredFlags, kDisablingFlags, kRunOnce,         kPluginVersion,
                           kOperations,    kStart,          kApplyHostProfile};

json::parse_options Dialect() {
    json::parse_options options;
    options.allow_comments = true;
    options.allow_trailing_commas = true;
    return options;
}

/// Reads one file; each step throws with the reason that its users know.
class Reader {
  public:
    explicit Reader(const std::string& path) : path_(path) {}

    JSONPluginFile Read() {
        const json::value root = Parse();
        if (!root.is_object()) {
            Fail("plugin root is not an object");
        }
        JSONPluginFile file;
        ReadMetadata(Object(root.get_object(), kMetadata, "invalid metadata interface"), file);
        ReadOperations(Object(root.get_object(), kOperations, "invalid operations interface"), file);
        return file;
    }

  private:
    [[noreturn]] void Fail(const std::string& reason) const { throw InvalidPluginException(path_, reason); }

    /// A text that is not JSON gives null, which is no object either.
    [[nodiscard]] json::value Parse() const {
        const std::optional<std::string> text = ReadRegularFile(path_);
        if (!text.has_value()) {
            Fail("no such file or directory");
        }
        json::error_code error;
        json::value root = json::parse(*text, error, &memory_, Dialect());
        if (error) {
            return nullptr;
        }
        return root;
    }

    [[nodiscard]] const json::object& Object(const json::object& parent, const JSONPluginKey& key,
                                             const char* failure) const {
        const json::value* value = parent.if_contains(key.name);
        if (value == nullptr || !value->is_object()) {
            Fail(failure);
        }
        return value->get_object();
    }

    void ReadMetadata(const json::object& metadata, JSONPluginFile& file) const {
        file.version = Version(metadata);
        file.requires_names = Names(metadata, kRequires);
        file.provides_names = Names(metadata, kProvides);
        if (file.version < kRunOnce.since) {
            return;
        }
        file.required_flags = Flags(metadata, kRequiredFlags);
        file.disabling_flags = Flags(metadata, kDisablingFlags);
        const json::value* run_once = metadata.if_contains(kRunOnce.name);
        if (run_once == nullptr || !run_once->is_bool()) {
            Fail("metadata is corrupt (unable to parse run_once)");
        }
        file.run_once = run_once->get_bool();
        const json::value* plugin_version = metadata.if_contains(kPluginVersion.name);
        if (plugin_version == nullptr || !plugin_version->is_string()) {
            Fail("metadata is corrupt (unable to parse plugin_version)");
        }
        file.plugin_version = plugin_version->get_string();
    }

    [[nodiscard]] std::int32_t Version(const json::object& metadata) const {
        const json::value* value = metadata.if_contains(kVersion.name);
        if (value == nullptr || !value->is_number()) {
            Fail("metadata is corrupt (unable to parse version)");
        }
        // As a double every version that is supported is exact, and none that is not can wrap into one.
        const double version = std::trunc(value->to_number<double>());
        if (!(version >= kOldestVersion && version <= kNewestVersion)) {
            Fail("Unsupported API version");
        }
        return static_cast<std::int32_t>(version);
    }

    [[nodiscard]] std::vector<std::string> Names(const json::object& metadata,
                                                 const JSONPluginKey& key) const {
        const std::string name(key.name);
        return Strings(metadata.if_contains(key.name), "metadata is corrupt (unable to parse " + name + ")",
                       name + " tag is not a string");
    }

    [[nodiscard]] std::set<std::string> Flags(const json::object& metadata, const JSONPluginKey& key) const {
        if (!metadata.contains(key.name)) {
            return {};
        }
        const std::vector<std::string> names = Names(metadata, key);
        return {names.begin(), names.end()};
    }

    void ReadOperations(const json::object& operations, JSONPluginFile& file) const {
        constexpr const char* kNotACommand = "command is not a string";
        file.start = Strings(operations.if_contains(kStart.name),
                             "operations is corrupt (unable to parse start)", kNotACommand);
        const json::value* apply = operations.if_contains(kApplyHostProfile.name);
        if (file.version >= kApplyHostProfile.since && apply != nullptr) {
            // The key has underscores and the message hyphens; log scanners match the message.
            file.apply_host_profile =
                Strings(apply, "operations is corrupt (unable to parse apply-host-profile)", kNotACommand);
        }
    }

    [[nodiscard]] std::vector<std::string> Strings(const json::value* list, const std::string& not_a_list,
                                                   const std::string& not_a_string) const {
        if (list == nullptr || !list->is_array()) {
            Fail(not_a_list);
        }
        std::vector<std::string> strings;
        strings.reserve(list->get_array().size());
        for (const json::value& element : list->get_array()) {
            if (!element.is_string()) {
                Fail(not_a_string);
            }
            strings.emplace_back(element.get_string());
        }
        return strings;
    }

    const std::string& path_;
    mutable json::monotonic_resource memory_;  // of all values, freed at once with the reader
};

/// Notes the keys of a text while it is parsed: a parsed object no longer knows that a key was repeated.
class KeyHandler {
  public:
    static constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();
    // NOLINTBEGIN(readability-identifier-naming): the parser's names
    static constexpr std::size_t max_object_size = kUnlimited;
    static constexpr std::size_t max_array_size = kUnlimited;
    static constexpr std::size_t max_key_size = kUnlimited;
    static constexpr std::size_t max_string_size = kUnlimited;
    // NOLINTEND(readability-identifier-naming)

    using Error = json::error_code;
    using Text = json::string_view;

    bool on_object_begin(Error& /*error*/) {
        open_.push_back('{');
        names_of_depth_.resize(open_.size());
        names_of_depth_.back().clear();
        return true;
    }
    bool on_object_end(std::size_t /*count*/, Error& /*error*/) { return Close(); }
    bool on_array_begin(Error& /*error*/) {
        open_.push_back('[');
        return true;
    }
    bool on_array_end(std::size_t /*count*/, Error& /*error*/) { return Close(); }
    bool on_key_part(Text text, std::size_t /*size*/, Error& /*error*/) {
        name_ += std::string_view(text);
        return true;
    }
    bool on_key(Text text, std::size_t /*size*/, Error& /*error*/) {
        name_ += std::string_view(text);
        Note(std::exchange(name_, {}));
        return true;
    }
    bool on_document_begin(Error& /*error*/) { return true; }
    bool on_document_end(Error& /*error*/) { return true; }
    bool on_string_part(Text /*text*/, std::size_t /*size*/, Error& /*error*/) { return true; }
    bool on_string(Text /*text*/, std::size_t /*size*/, Error& /*error*/) { return true; }
    bool on_number_part(Text /*text*/, Error& /*error*/) { return true; }
    bool on_int64(std::int64_t /*number*/, Text /*text*/, Error& /*error*/) { return true; }
    bool on_uint64(std::uint64_t /*number*/, Text /*text*/, Error& /*error*/) { return true; }
    bool on_double(double /*number*/, Text /*text*/, Error& /*error*/) { return true; }
    bool on_bool(bool /*value*/, Error& /*error*/) { return true; }
    bool on_null(Error& /*error*/) { return true; }
    bool on_comment_part(Text /*text*/, Error& /*error*/) { return true; }
    bool on_comment(Text /*text*/, Error& /*error*/) { return true; }

    JSONPluginRemarks remarks;

  private:
    bool Close() {
        open_.pop_back();
        return true;
    }

    /// Only the root's keys and those of objects that are values of the root count.
    void Note(std::string name) {
        if (open_ == "{") {
            parent_ = name;
        } else if (open_ != "{{") {
            return;
        }
        const bool is_root = open_.size() == 1;
        auto& target =
            names_of_depth_[open_.size() - 1].insert(name).second ? remarks.keys : remarks.repeated;
        target.push_back({is_root ? "" : parent_, std::move(name)});
    }

    std::string open_;  // brackets, from the root's
    std::vector<std::set<std::string>> names_of_depth_;
    std::string name_;
    std::string parent_;
};

/// Where in a text, as people count.
std::string PlaceText(std::string_view before) {
    const auto line = std::count(before.begin(), before.end(), '\n');
    const std::size_t start = before.rfind('\n') + 1;  // npos wraps to 0
    return "line " + std::to_string(line + 1) + ", column " + std::to_string(before.size() - start + 1);
}

}  // namespace

JSONPluginFile ReadJSONPluginFile(const std::string& path) {
    return Reader(path).Read();
}

std::span<const JSONPluginKey> JSONPluginKeys() {
    return kKeys;
}

JSONPluginRemarks ReadJSONPluginRemarks(const std::string& path) {
    const std::optional<std::string> text = ReadRegularFile(path);
    if (!text.has_value()) {
        return {};
    }
    json::basic_parser<KeyHandler> parser(Dialect());
    json::error_code error;
    const std::size_t read = parser.write_some(false, text->data(), text->size(), error);
    if (!error && read < text->size()) {
        error = json::error::extra_data;
    }
    JSONPluginRemarks remarks = std::move(parser.handler().remarks);
    if (error) {
        remarks.syntax_error = PlaceText(std::string_view(*text).substr(0, read)) + ": " + error.message();
    }
    return remarks;
}

}  // namespace bootweave
