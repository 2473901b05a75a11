// SPDX-License-Identifier: Apache-2.0
#include "analyze/did_you_mean.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <utility>

namespace bootweave {
namespace {

constexpr std::size_t kFarthest = 2;

/// Without the differences that matter least to people.
char Plain(char letter) {
    if (letter >= 'A' && letter <= 'Z') {
        return static_cast<char>(letter - 'A' + 'a');
    }
    return letter == '-' ? '_' : letter;
}

bool AreAlike(char left, char right) {
    return Plain(left) == Plain(right);
}

/// A row of the distances between the beginnings of two names, only as far from its diagonal as may count:
/// names of megabytes would take hours otherwise.
using Band = std::array<std::size_t, 2 * kFarthest + 1>;

bool IsTooFar(const Band& band) {
    return *std::min_element(band.begin(), band.end()) > kFarthest;
}

constexpr std::size_t kTooFar = kFarthest + 1;

/// The last two letters of the one are those of the other, swapped.
bool EndSwapped(std::string_view left, std::string_view right) {
    return left.size() > 1 && right.size() > 1 && AreAlike(left.back(), right[right.size() - 2]) &&
           AreAlike(left[left.size() - 2], right.back());
}

/// The distance of two beginnings, neither empty, at the place `k` of `row`, whose places before it are
/// there.
std::size_t Cell(std::string_view left, std::string_view right, std::size_t k, const Band& row,
                 const Band& last, const Band& before_last) {
    std::size_t distance = last[k] + (AreAlike(left.back(), right.back()) ? 0 : 1);
    distance = std::min(distance, k > 0 ? row[k - 1] + 1 : kTooFar);
    distance = std::min(distance, k + 1 < row.size() ? last[k + 1] + 1 : kTooFar);
    return EndSwapped(left, right) ? std::min(distance, before_last[k] + 1) : distance;
}

/// How many letters to add, leave out, change or swap with their neighbour make one name of the other; some
/// number beyond kFarthest when there are more.
std::size_t Distance(std::string_view left, std::string_view right) {
    if (std::max(left.size(), right.size()) - std::min(left.size(), right.size()) > kFarthest) {
        return kTooFar;
    }
    Band before_last;
    Band last;
    Band row;
    last.fill(kTooFar);
    row.fill(kTooFar);
    std::iota(row.begin() + kFarthest, row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= left.size() && !(IsTooFar(last) && IsTooFar(row)); ++i) {
        before_last = std::exchange(last, row);
        row.fill(kTooFar);
        for (std::size_t k = i < kFarthest ? kFarthest - i : 0; k < row.size(); ++k) {
            const std::size_t j = i + k - kFarthest;
            if (j > right.size()) {
                break;
            }
            row[k] = j == 0 ? i : Cell(left.substr(0, i), right.substr(0, j), k, row, last, before_last);
        }
    }
    return row[right.size() + kFarthest - left.size()];
}

}  // namespace

std::string_view FindNearest(std::string_view name, const std::vector<std::string_view>& known) {
    std::size_t nearest = kFarthest + 1;
    std::string_view found;
    for (const std::string_view candidate : known) {
        const std::size_t distance = Distance(name, candidate);
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
