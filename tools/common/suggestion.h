// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// "Did you mean" for misspelt words.
///
///   nearestWord("montior", {"monitor", "record"})  // "monitor"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::tools {

/// The word that was probably meant: one that `text` begins, or one with at most two letters wrong,
/// missing, too many or swapped. Empty when there is none.
std::optional<std::string> nearestWord(std::string_view text,
                                       const std::vector<std::string>& words);

}  // namespace Zephly::tools
