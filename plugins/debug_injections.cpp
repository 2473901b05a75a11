// SPDX-License-Identifier: Apache-2.0
#include "plugins/debug_injections.h"

#include <optional>
#include <sstream>

#include <boost/algorithm/string/trim.hpp>
#include <boost/tokenizer.hpp>

#include "platform/log.h"
#include "util/read_file.h"

namespace bootweave {
namespace {

bool IsSameFile(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino && left.st_size == right.st_size &&
           left.st_mtim.tv_sec == right.st_mtim.tv_sec && left.st_mtim.tv_nsec == right.st_mtim.tv_nsec &&
           left.st_ctim.tv_sec == right.st_ctim.tv_sec && left.st_ctim.tv_nsec == right.st_ctim.tv_nsec;
}

std::vector<std::string> SplitFields(const std::string& line) {
    const boost::char_separator<char> colon(":");
    const boost::tokenizer<boost::char_separator<char>> fields(line, colon);
    return {fields.begin(), fields.end()};
}

/// \throws boost::escaped_list_error  for an escape that is not known or not complete
std::vector<std::string> SplitList(const std::string& field) {
    const boost::escaped_list_separator<char> separator("\\", ",", "\"'");
    const boost::tokenizer<boost::escaped_list_separator<char>> elements(field, separator);
    std::vector<std::string> names;
    for (const std::string& element : elements) {
        std::string name = boost::algorithm::trim_copy(element);
        if (!name.empty()) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

}  // namespace

const std::vector<DebugInjection>& DebugInjections::Load() {
    LoadQuietly();
    for (const std::string& complaint : complaints_) {
        Log_Level(5, "%s\n", complaint.c_str());
    }
    return injections_;
}

const std::vector<DebugInjection>& DebugInjections::LoadQuietly() {
    struct stat now {};
    if (::stat(path_.c_str(), &now) != 0) {
        parsed_ = {};
        injections_.clear();
        complaints_.clear();
    } else if (!IsSameFile(now, parsed_)) {
        parsed_ = {};  // a parse that breaks off is made again
        Parse();
        parsed_ = now;
    }
    return injections_;
}

void DebugInjections::Parse() {
    injections_.clear();
    complaints_.clear();
    std::istringstream text(ReadRegularFile(path_).value_or(""));
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        ParseLine(number, boost::algorithm::trim_copy(line));
    }
}

void DebugInjections::ParseLine(int number, const std::string& line) {
    constexpr std::size_t kFields = 4;
    if (line.empty()) {
        return;
    }
    try {
        const std::vector<std::string> fields = SplitFields(line);
        if (fields.size() == kFields) {
            injections_.push_back({boost::algorithm::trim_copy(fields[0]), SplitList(fields[1]),
                                   SplitList(fields[2]), fields[3]});
            return;
        }
    } catch (const boost::escaped_list_error&) {  // reported as any other malformed line
    }
    complaints_.push_back("ignoring malformed debug entry at line " + std::to_string(number) + ": " + line);
}

}  // namespace bootweave
