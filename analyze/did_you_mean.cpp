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

/// How many letters to add, leave out, change or swap with their neighbour make one name of the other; some
/// number beyond kFarthest when there are more.
std::size_t Distance(std::string_view left, std::string_view right) {
    constexpr std::size_t kTooFar = kFarthest + 1;
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
            if (j == 0) {
                row[k] = i;
                continue;
            }
            if (j > right.size()) {
                break;
            }
            row[k] = last[k] + (AreAlike(left[i - 1], right[j - 1]) ? 0 : 1);
            row[k] = std::min(row[k], k > 0 ? row[k - 1] + 1 : kTooFar);
            row[k] = std::min(row[k], k + 1 < row.size() ? last[k + 1] + 1 : kTooFar);
            if (i > 1 && j > 1 && AreAlike(left[i - 1], right[j - 2]) &&
                AreAlike(left[i - 2], right[j - 1])) {
                row[k] = std::min(row[k], before_last[k] + 1);
            }
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
