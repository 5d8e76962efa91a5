// SPDX-License-Identifier: MIT
#include <tools/common/suggestion.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zephly::tools {
namespace {

const std::vector<std::string> words = {"monitor",     "view",   "record", "replay",
                                        "--simulated", "--seed", "--csv",  "--diagnostics"};

TEST(SuggestionTest, FindsWordsWithAWrongMissingSuperfluousOrSwappedLetter) {
  EXPECT_EQ(nearestWord("montior", words), "monitor");
  EXPECT_EQ(nearestWord("monitr", words), "monitor");
  EXPECT_EQ(nearestWord("moonitor", words), "monitor");
  EXPECT_EQ(nearestWord("recird", words), "record");
  EXPECT_EQ(nearestWord("-simulated", words), "--simulated");
  EXPECT_EQ(nearestWord("--sede", words), "--seed");
}

TEST(SuggestionTest, CompletesABeginning) {
  EXPECT_EQ(nearestWord("--simul", words), "--simulated");
  EXPECT_EQ(nearestWord("diagnostics", words), "--diagnostics");
}

TEST(SuggestionTest, IsSilentAboutOtherWords) {
  for (const char* text : {"", "x", "dance", "--loud", "--", "vi", "monitoringstation"}) {
    EXPECT_EQ(nearestWord(text, words), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace Zephly::tools
