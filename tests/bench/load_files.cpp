// SPDX-License-Identifier: Apache-2.0
// The floor of discovery: reads and parses each file of a directory, and nothing else.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include <boost/json.hpp>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: load_files DIRECTORY\n";
        return 2;
    }
    const boost::json::parse_options options{.allow_comments = true, .allow_trailing_commas = true};
    std::size_t sum = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const boost::json::value value = boost::json::parse(text, {}, options);
        sum += value.as_object().size();
    }
    return sum > 0 ? 0 : 1;
}
