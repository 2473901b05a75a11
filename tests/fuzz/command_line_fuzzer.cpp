// SPDX-License-Identifier: Apache-2.0
// The command line of a host command.

#include <algorithm>

#include "platform/cmdgen.h"
#include "tests/fuzz/fuzzing.h"

namespace bootweave {
namespace {

using Plinth::Cmdgen::OptionParser;

/// One word that keeps every character but the null byte, which no line can hold.
std::string Quote(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) {
        quoted += character == '\'' ? "'\"'\"'" : std::string(1, character);
    }
    return quoted + "'";
}

bool IsPathWord(const std::string& word) {
    return !word.empty() && word.front() != '-' && std::all_of(word.begin(), word.end(), [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') || character == '_' || character == '-';
    });
}

/// The command, written anew.
std::string Render(const OptionParser& parser) {
    std::string line;
    for (const std::string& word : parser.GetCommandPath()) {
        line += word + " ";
    }
    for (const auto& [name, value] : parser.GetCommandParameters()) {
        line += (name.size() == 1 ? "-" : "--") + name + "=" + Quote(value) + " ";
    }
    return line;
}

}  // namespace
}  // namespace bootweave

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    OptionParser parser;
    const bool good = parser.ParseString(std::string(Text(data, size)));
    Check(good == parser.GetParseErrors().empty(), "a line is good or has errors");
    if (!good) {
        return 0;
    }
    Check(!parser.GetCommandPath().empty(), "a command has a path");
    for (const std::string& word : parser.GetCommandPath()) {
        Check(IsPathWord(word), "no word of the path can leave the directory of commands");
    }
    OptionParser again;
    Check(again.ParseString(Render(parser)), "a command written anew is good");
    Check(again.GetCommandPath() == parser.GetCommandPath() &&
              again.GetCommandParameters() == parser.GetCommandParameters(),
          "a command written anew is the same");
    return 0;
}
