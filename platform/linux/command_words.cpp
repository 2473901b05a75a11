// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/command_words.h"

#include <algorithm>
#include <cstddef>

#include "util/exception.h"

namespace bootweave {
namespace {

// Not isalpha and its kin: what a name may hold must not depend on the host's locale.
bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsNameCharacter(char c) {
    return IsLetter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-';
}
bool IsSeparator(char c) {
    return c == ' ' || c == '\t';
}

/// Reads one line from left to right, a word at a time.
class WordReader {
  public:
    explicit WordReader(std::string_view line) : line_(line) {}

    /// Goes to the next word; false at the end of the line.
    bool SkipSeparators() {
        while (position_ < line_.size() && IsSeparator(line_[position_])) {
            ++position_;
        }
        return position_ < line_.size();
    }

    CommandWord ReadWord() {
        word_ = {};
        while (position_ < line_.size() && !IsSeparator(line_[position_])) {
            const char c = line_[position_++];
            if (c == '\'' || c == '"') {
                ReadQuoted(c);
            } else if (c == '\\') {
                ReadEscaped();
            } else {
                word_.option = word_.option || (c == '-' && word_.text.empty());
                word_.text += c;
            }
        }
        return std::move(word_);
    }

  private:
    void ReadEscaped() {
        if (position_ == line_.size()) {
            throw Exception("trailing backslash");
        }
        word_.text += line_[position_++];
    }

    void ReadQuoted(char quote) {
        while (position_ < line_.size()) {
            const char c = line_[position_++];
            if (c == quote) {
                return;
            }
            const bool escape = c == '\\' && quote == '"' && position_ < line_.size() &&
                                (line_[position_] == '"' || line_[position_] == '\\');
            word_.text += escape ? line_[position_++] : c;
        }
        throw Exception("unterminated quote");
    }

    std::string_view line_;
    std::size_t position_ = 0;
    CommandWord word_;
};

}  // namespace

std::vector<CommandWord> SplitCommandLine(std::string_view line) {
    std::vector<CommandWord> words;
    WordReader reader(line);
    while (reader.SkipSeparators()) {
        words.push_back(reader.ReadWord());
    }
    return words;
}

bool IsCommandWord(std::string_view text) {
    return !text.empty() && text.front() != '-' && std::all_of(text.begin(), text.end(), IsNameCharacter);
}

bool IsLongOptionName(std::string_view text) {
    return IsCommandWord(text) && IsLetter(text.front());
}

bool IsShortOptionName(std::string_view text) {
    return text.size() == 1 && IsLetter(text.front());
}

}  // namespace bootweave
