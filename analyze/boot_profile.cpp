// SPDX-License-Identifier: Apache-2.0
#include "analyze/boot_profile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <system_error>
#include <utility>

#include "analyze/field_text.h"
#include "util/error_text.h"
#include "util/exception.h"
#include "util/read_file.h"

namespace bootweave {
namespace {

constexpr std::string_view kStampShape = "0000-00-00 00:00:00.000000";  // 0 is any digit
constexpr std::string_view kBetweenStamps = " - ";

constexpr std::array<std::pair<std::string_view, RunKind>, 2> kPluginMarks{
    {{"] sysboot: ", RunKind::kBoot}, {"] daemon: ", RunKind::kDaemon}}};
constexpr std::array<std::pair<std::string_view, RunKind>, 2> kSettingsMarks{
    {{"=== Bootweave configuration info ===", RunKind::kBoot},
     {"=== Daemon configuration info ===", RunKind::kDaemon}}};
constexpr std::array<std::pair<std::string_view, std::optional<bool> RunSettings::*>, 4> kFlags{
    {{" Verbose: ", &RunSettings::verbose},
     {" Parallel: ", &RunSettings::parallel},
     {" Randomize: ", &RunSettings::randomize},
     {" Interactive Mode: ", &RunSettings::interactive}}};

/// Takes `prefix` off the front of `text`; false leaves it alone.
bool Skip(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

/// A number that is the whole text.
template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

bool HasShapeOfStamp(std::string_view text) {
    return std::equal(text.begin(), text.end(), kStampShape.begin(), kStampShape.end(),
                      [](char character, char shape) {
                          return shape == '0' ? character >= '0' && character <= '9' : character == shape;
                      });
}

/// Nothing for a time before 1970, which no run writes.
std::optional<Instant> ParseStamp(std::string_view text) {
    using namespace std::chrono;
    if (!HasShapeOfStamp(text)) {
        return std::nullopt;
    }
    const auto field = [&](std::size_t at, std::size_t digits) {
        return ParseNumber<unsigned>(text.substr(at, digits)).value_or(0);
    };
    const year_month_day date(year(static_cast<int>(field(0, 4))), month(field(5, 2)), day(field(8, 2)));
    const unsigned hour = field(11, 2);
    const unsigned minute = field(14, 2);
    const unsigned second = field(17, 2);
    if (!date.ok() || date.year() < year(1970) || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    return sys_days(date) + hours(hour) + minutes(minute) + seconds(second) + microseconds(field(20, 6));
}

/// Takes a stamp off the front of `text`.
std::optional<Instant> SkipStamp(std::string_view& text) {
    const std::optional<Instant> stamp = ParseStamp(text.substr(0, kStampShape.size()));
    if (stamp.has_value()) {
        text.remove_prefix(kStampShape.size());
    }
    return stamp;
}

/// "[START - END] sysboot: NAME", or the same of a daemon.
std::optional<std::pair<RunKind, PluginTimes>> ParsePlugin(std::string_view line) {
    if (!Skip(line, "[")) {
        return std::nullopt;
    }
    const std::optional<Instant> start = SkipStamp(line);
    if (!start.has_value() || !Skip(line, kBetweenStamps)) {
        return std::nullopt;
    }
    const std::optional<Instant> end = SkipStamp(line);
    if (!end.has_value()) {
        return std::nullopt;
    }
    for (const auto& [mark, kind] : kPluginMarks) {
        if (Skip(line, mark)) {
            return std::pair(kind, PluginTimes{FieldText(line), *start, *end});
        }
    }
    return std::nullopt;
}

bool IsComplete(const ProfileBlock& block) {
    const RunSettings& settings = block.settings;
    return block.start.has_value() && block.end.has_value() &&
           (block.kind == RunKind::kDaemon || block.kernel.has_value()) && settings.seed.has_value() &&
           std::all_of(kFlags.begin(), kFlags.end(),
                       [&](const auto& flag) { return (settings.*flag.second).has_value(); });
}

/// More than three times what one plugin can take by stamps of four-digit years, and so little that sums of
/// two such sums are far from an overflow.
constexpr Duration kMostTogether = std::chrono::years(30'000);

class Parser {
  public:
    BootProfile Parse(std::string_view text) {
        while (!text.empty()) {
            ++line_;
            const std::size_t length = text.find('\n');
            if (length == std::string_view::npos) {
                Warn(line_, "the line is cut, and left out");
                break;
            }
            if (!TakeLine(text.substr(0, length))) {
                Warn(line_, "not understood, and left out");
            }
            text.remove_prefix(length + 1);
        }
        LookAtBlocks();
        std::stable_sort(profile_.warnings.begin(), profile_.warnings.end(),
                         [](const auto& one, const auto& other) { return one.line < other.line; });
        return std::move(profile_);
    }

  private:
    void Warn(std::size_t line, std::string text) {
        constexpr std::size_t kMostKept = 1000;  // a file that is no profile at all has one for each line
        if (profile_.warnings.size() < kMostKept) {
            profile_.warnings.push_back({line, std::move(text)});
        } else {
            ++profile_.more_warnings;
        }
    }

    bool TakeLine(std::string_view line) {
        return TakeFirstLine(line) || TakePlugin(line) || TakeSettingsMark(line) || TakeSetting(line);
    }

    bool TakeFirstLine(std::string_view line) {
        if (!Skip(line, "Mantle Initialization Time: ")) {
            return false;
        }
        const auto kernel = ParseNumber<std::int64_t>(line);
        if (!kernel.has_value() || *kernel < 0) {
            return false;
        }
        Begin(RunKind::kBoot);
        profile_.blocks.back().kernel = Duration(*kernel);
        return true;
    }

    bool TakePlugin(std::string_view line) {
        auto plugin = ParsePlugin(line);
        if (!plugin.has_value()) {
            return false;
        }
        if (plugin->second.ran() && plugin->second.end < plugin->second.start) {
            Warn(line_, plugin->second.name + " ends before it starts: the clock was set back");
        }
        ContinueOrBegin(plugin->first);
        if (plugin->second.taken() > kMostTogether - together_) {
            Warn(line_, plugin->second.name +
                            " takes the times of the run beyond what can be added up, and is "
                            "left out");
            return true;
        }
        together_ += plugin->second.taken();
        profile_.blocks.back().plugins.push_back(std::move(plugin->second));
        return true;
    }

    bool TakeSettingsMark(std::string_view line) {
        const auto* const found = std::find_if(kSettingsMarks.begin(), kSettingsMarks.end(),
                                               [line](const auto& entry) { return line == entry.first; });
        if (found == kSettingsMarks.end()) {
            return false;
        }
        ContinueOrBegin(found->second);
        in_settings_ = true;
        return true;
    }

    bool TakeSetting(std::string_view line) {
        if (!in_settings_) {
            return false;
        }
        ProfileBlock& block = profile_.blocks.back();
        const bool is_boot = block.kind == RunKind::kBoot;
        if (Skip(line, is_boot ? " Start: " : " Start Daemon: ")) {
            return SetOnce(block.start, ParseStamp(line));
        }
        if (Skip(line, is_boot ? " End: " : " End Daemon: ")) {
            return SetOnce(block.end, ParseStamp(line));
        }
        if (Skip(line, " Random Seed: ")) {
            return SetOnce(block.settings.seed, ParseNumber<std::int64_t>(line));
        }
        for (const auto& [name, flag] : kFlags) {
            if (Skip(line, name) && (line == "0" || line == "1")) {
                return SetOnce(block.settings.*flag, std::optional(line == "1"));
            }
        }
        return false;
    }

    /// No run writes a setting twice: a second one is not its own.
    template <typename Value>
    static bool SetOnce(std::optional<Value>& setting, const std::optional<Value>& value) {
        if (setting.has_value() || !value.has_value()) {
            return false;
        }
        setting = value;
        return true;
    }

    void Begin(RunKind kind) {
        profile_.blocks.push_back({.kind = kind, .line = line_});
        in_settings_ = false;
        together_ = Duration(0);
    }

    /// A block's plugins stand before its settings, so what comes behind those is the next block's.
    void ContinueOrBegin(RunKind kind) {
        if (profile_.blocks.empty() || in_settings_ || profile_.blocks.back().kind != kind) {
            Begin(kind);
        }
    }

    void LookAtBlocks() {
        for (const ProfileBlock& block : profile_.blocks) {
            if (!IsComplete(block)) {
                Warn(block.line, "the block that begins here is not complete");
            }
            if (block.start.has_value() && block.end.has_value() && *block.end < *block.start) {
                Warn(block.line, "the run ends before it starts: the clock was set back");
            } else {
                LookForStrays(block);
            }
        }
    }

    /// Names the first plugin that did not run within the run.
    void LookForStrays(const ProfileBlock& block) {
        for (const PluginTimes& plugin : block.plugins) {
            const bool early = block.start.has_value() && plugin.start < *block.start;
            const bool late = block.end.has_value() && plugin.end > *block.end;
            if (plugin.ran() && (early || late)) {
                Warn(block.line, plugin.name + (early ? " starts before the run" : " ends after the run") +
                                     ": the clock was set back");
                return;
            }
        }
    }

    BootProfile profile_;
    std::size_t line_ = 0;
    bool in_settings_ = false;  // of the last block
    Duration together_{0};      // what the plugins of the last block took
};

}  // namespace

const char* RunKindText(RunKind kind) {
    return kind == RunKind::kBoot ? "boot" : "daemon";
}

BootProfile ParseBootProfile(std::string_view text) {
    return Parser().Parse(text);
}

BootProfile ReadBootProfile(const std::string& path) {
    errno = 0;
    const std::optional<std::string> text = ReadRegularFile(path);
    if (!text.has_value()) {
        const int error = errno;
        throw Exception("cannot read " + path + ": " +
                        (error != 0 ? ErrorText(error) : std::string("not a regular file")));
    }
    return ParseBootProfile(*text);
}

}  // namespace bootweave
