// SPDX-License-Identifier: Apache-2.0
#include <cstddef>
#include <string_view>

#include "platform/cmdgen.h"
#include "platform/linux/command_words.h"
#include "util/exception.h"

namespace Plinth::Cmdgen {
namespace {

/// What an option without a value of its own means.
constexpr const char* kBareValue = "true";

/// An option word taken apart.
struct Option {
    std::string name;
    std::string value;
    bool bare = false;   ///< no "=value": the next plain word is its value
    bool valid = false;  ///< the name is one
};

Option ReadOption(std::string_view word) {
    const bool is_long = word.substr(0, 2) == "--";
    word.remove_prefix(is_long ? 2 : 1);
    const std::size_t equals = word.find('=');
    const std::string_view name = word.substr(0, equals);
    Option option;
    option.name = name;
    option.bare = equals == std::string_view::npos;
    option.value = option.bare ? kBareValue : word.substr(equals + 1);
    option.valid = is_long ? bootweave::IsLongOptionName(name) : bootweave::IsShortOptionName(name);
    return option;
}

/// Takes the words of one line in order.
class Reader {
  public:
    Reader(std::list<std::string>& path, OptionParser::Parameters& parameters, std::list<std::string>& errors)
        : path_(path), parameters_(parameters), errors_(errors) {}

    void Take(const bootweave::CommandWord& word) {
        if (word.option) {
            TakeOption(word.text);
        } else if (!in_options_) {
            TakePathWord(word.text);
        } else {
            TakeValue(word.text);
        }
    }

  private:
    void TakeOption(const std::string& word) {
        in_options_ = true;
        Option option = ReadOption(word);
        expects_value_ = option.valid && option.bare;
        if (option.valid) {
            parameters_.emplace_back(std::move(option.name), std::move(option.value));
        } else {
            errors_.push_back("invalid option '" + word + "'");
        }
    }

    void TakePathWord(const std::string& word) {
        if (!bootweave::IsCommandWord(word)) {
            errors_.push_back("invalid command word '" + word + "'");
        }
        path_.push_back(word);
    }

    void TakeValue(const std::string& word) {
        if (expects_value_) {
            parameters_.back().second = word;
        } else {
            errors_.push_back("unexpected argument '" + word + "'");
        }
        expects_value_ = false;
    }

    std::list<std::string>& path_;
    OptionParser::Parameters& parameters_;
    std::list<std::string>& errors_;
    bool in_options_ = false;
    bool expects_value_ = false;
};

}  // namespace

bool OptionParser::ParseString(const std::string& line) {
    path_.clear();
    parameters_.clear();
    errors_.clear();
    try {
        const auto words = bootweave::SplitCommandLine(line);
        if (words.empty() || words.front().option) {
            throw bootweave::Exception("empty command");
        }
        Reader reader(path_, parameters_, errors_);
        for (const auto& word : words) {
            reader.Take(word);
        }
    } catch (const bootweave::Exception& error) {
        errors_.emplace_back(error.what());  // a line that cannot be read as a whole has this one error only
    }
    if (!errors_.empty()) {
        path_.clear();
        parameters_.clear();
    }
    return errors_.empty();
}

}  // namespace Plinth::Cmdgen
