// SPDX-License-Identifier: Apache-2.0
#include "plugins/json_plugin_file.h"

#include <cmath>
#include <string_view>

#include <boost/json.hpp>

#include "util/exception.h"
#include "util/read_file.h"

// The one file that parses JSON.

namespace bootweave {
namespace {

namespace json = boost::json;

constexpr std::int32_t kOldestVersion = 1;
constexpr std::int32_t kNewestVersion = 4;
constexpr std::int32_t kHostProfileVersion = 2;  // from here on apply_host_profile is read
constexpr std::int32_t kFlagsVersion = 3;        // from here on flags, run_once and plugin_version are read

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
        ReadMetadata(Object(root.get_object(), "metadata", "invalid metadata interface"), file);
        ReadOperations(Object(root.get_object(), "operations", "invalid operations interface"), file);
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
        json::parse_options options;
        options.allow_comments = true;
        options.allow_trailing_commas = true;
        json::error_code error;
        json::value root = json::parse(*text, error, &memory_, options);
        if (error) {
            return nullptr;
        }
        return root;
    }

    [[nodiscard]] const json::object& Object(const json::object& parent, std::string_view key,
                                             const char* failure) const {
        const json::value* value = parent.if_contains(key);
        if (value == nullptr || !value->is_object()) {
            Fail(failure);
        }
        return value->get_object();
    }

    void ReadMetadata(const json::object& metadata, JSONPluginFile& file) const {
        file.version = Version(metadata);
        file.requires_names = Names(metadata, "requires");
        file.provides_names = Names(metadata, "provides");
        if (file.version < kFlagsVersion) {
            return;
        }
        file.required_flags = Flags(metadata, "required_flags");
        file.disabling_flags = Flags(metadata, "disabling_flags");
        const json::value* run_once = metadata.if_contains("run_once");
        if (run_once == nullptr || !run_once->is_bool()) {
            Fail("metadata is corrupt (unable to parse run_once)");
        }
        file.run_once = run_once->get_bool();
        const json::value* plugin_version = metadata.if_contains("plugin_version");
        if (plugin_version == nullptr || !plugin_version->is_string()) {
            Fail("metadata is corrupt (unable to parse plugin_version)");
        }
        file.plugin_version = plugin_version->get_string();
    }

    [[nodiscard]] std::int32_t Version(const json::object& metadata) const {
        const json::value* value = metadata.if_contains("version");
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

    [[nodiscard]] std::vector<std::string> Names(const json::object& metadata, const std::string& key) const {
        return Strings(metadata.if_contains(key), "metadata is corrupt (unable to parse " + key + ")",
                       key + " tag is not a string");
    }

    [[nodiscard]] std::set<std::string> Flags(const json::object& metadata, const std::string& key) const {
        if (!metadata.contains(key)) {
            return {};
        }
        const std::vector<std::string> names = Names(metadata, key);
        return {names.begin(), names.end()};
    }

    void ReadOperations(const json::object& operations, JSONPluginFile& file) const {
        constexpr const char* kNotACommand = "command is not a string";
        file.start = Strings(operations.if_contains("start"), "operations is corrupt (unable to parse start)",
                             kNotACommand);
        const json::value* apply = operations.if_contains("apply_host_profile");
        if (file.version >= kHostProfileVersion && apply != nullptr) {
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

}  // namespace

JSONPluginFile ReadJSONPluginFile(const std::string& path) {
    return Reader(path).Read();
}

}  // namespace bootweave
