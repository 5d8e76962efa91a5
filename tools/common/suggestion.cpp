// SPDX-License-Identifier: MIT
#include <tools/common/suggestion.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace Zephly::tools {

namespace {

// Edit distance with swapped neighbours (optimal string alignment). rows[0] is the current row of
// the usual table, rows[1] the one before, rows[2] the one before that.
std::size_t editDistance(std::string_view left, std::string_view right) {
  std::array<std::vector<std::size_t>, 3> rows;
  for (auto& row : rows) row.resize(right.size() + 1);
  for (std::size_t k = 0; k <= right.size(); ++k) rows[0][k] = k;
  for (std::size_t i = 1; i <= left.size(); ++i) {
    std::rotate(rows.begin(), rows.end() - 1, rows.end());
    rows[0][0] = i;
    for (std::size_t k = 1; k <= right.size(); ++k) {
      const std::size_t other = left[i - 1] == right[k - 1] ? 0 : 1;
      rows[0][k] = std::min({rows[1][k] + 1, rows[0][k - 1] + 1, rows[1][k - 1] + other});
      if (i > 1 && k > 1 && left[i - 1] == right[k - 2] && left[i - 2] == right[k - 1]) {
        rows[0][k] = std::min(rows[0][k], rows[2][k - 2] + 1);
      }
    }
  }
  return rows[0][right.size()];
}

}  // namespace

std::optional<std::string> nearestWord(std::string_view text,
                                       const std::vector<std::string>& words) {
  constexpr std::size_t mostWrong = 2;
  constexpr std::size_t shortestBeginning = 3;
  std::optional<std::string> nearest;
  std::size_t least = mostWrong + 1;
  for (const std::string& word : words) {
    // In a short word, two wrong letters are another word.
    if (text.size() <= mostWrong || text.size() > word.size() + mostWrong) continue;
    const bool begins = text.size() >= shortestBeginning && word.starts_with(text);
    const std::size_t distance = begins ? 1 : editDistance(text, word);
    if (distance >= least || 2 * distance >= word.size()) continue;
    least = distance;
    nearest = word;
  }
  return nearest;
}

}  // namespace Zephly::tools
