// SPDX-License-Identifier: Apache-2.0
#include "analyze/did_you_mean.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace bootweave {
namespace {

constexpr std::size_t kFarthest = 2;

/// Without the differences that matter least to people.
std::string Plain(std::string_view name) {
    std::string plain(name);
    for (char& letter : plain) {
        if (letter >= 'A' && letter <= 'Z') {
            letter = static_cast<char>(letter - 'A' + 'a');
        } else if (letter == '-') {
            letter = '_';
        }
    }
    return plain;
}

/// How many letters to add, leave out, change or swap with their neighbour make one name of the other.
std::size_t Distance(const std::string& left, const std::string& right) {
    const std::size_t size_difference =
        std::max(left.size(), right.size()) - std::min(left.size(), right.size());
    if (size_difference > kFarthest) {
        return size_difference;
    }
    std::vector<std::size_t> before_last(right.size() + 1);
    std::vector<std::size_t> last(right.size() + 1);
    std::vector<std::size_t> row(right.size() + 1);
    for (std::size_t j = 0; j <= right.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::swap(before_last, last);
        std::swap(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t change = left[i - 1] == right[j - 1] ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                row[j] = std::min(row[j], before_last[j - 2] + 1);
            }
        }
    }
    return row.back();
}

}  // namespace

std::string_view FindNearest(std::string_view name, const std::vector<std::string_view>& known) {
    const std::string plain = Plain(name);
    std::size_t nearest = kFarthest + 1;
    std::string_view found;
    for (const std::string_view candidate : known) {
        const std::size_t distance = Distance(plain, Plain(candidate));
        if (distance < nearest && 2 * distance < std::max(name.size(), candidate.size())) {
            nearest = distance;
            found = candidate;
        }
    }
    return found;
}

std::string DidYouMean(std::string_view name) {
    return name.empty() ? "" : "; did you mean '" + std::string(name) + "'?";
}

}  // namespace bootweave
