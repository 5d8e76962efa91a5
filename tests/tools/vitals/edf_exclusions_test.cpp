// SPDX-License-Identifier: MIT
#include <tools/vitals/edf_exclusions.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using Zephly::recorders::EdfExclusions;

// "+1|2;BAD_x;" with the separators of the format.
std::string annotation(std::string text) {
  for (char& one : text) {
    if (one == '|') one = '\x15';
    if (one == ';') one = '\x14';
  }
  return text + '\0';
}

EdfExclusions exclusionsOf(const std::string& bytes) {
  EdfExclusions exclusions;
  exclusions.take(bytes);
  exclusions.complete();
  return exclusions;
}

TEST(EdfExclusionsTest, HoldStretchesThatAreBad) {
  const EdfExclusions one = exclusionsOf(annotation("+0;;") + annotation("+1.5|2;BAD_gap;"));
  EXPECT_FALSE(one.contain(1.49));
  EXPECT_TRUE(one.contain(1.5));
  EXPECT_TRUE(one.contain(3.49));
  EXPECT_FALSE(one.contain(3.5));
}

TEST(EdfExclusionsTest, HoldNoOthers) {
  EXPECT_TRUE(exclusionsOf("").empty());
  EXPECT_TRUE(exclusionsOf(annotation("+1|2;good;")).empty());
  EXPECT_TRUE(exclusionsOf(annotation("+1;BAD_without a duration;")).empty());
  EXPECT_TRUE(exclusionsOf(annotation("+1|0;BAD_x;")).empty());
  EXPECT_TRUE(exclusionsOf(annotation("+1|2;BAD;") + annotation("+1|2;Bad_x;")).empty());
}

TEST(EdfExclusionsTest, AreSortedAndJoined) {
  const EdfExclusions all = exclusionsOf(annotation("+10|5;BAD_a;") + annotation("+1|20;BAD_b;") +
                                         annotation("+2|1;BAD_c;") + annotation("+30|1;BAD_d;"));
  for (const double inside : {1.0, 2.5, 9.0, 15.5, 20.9, 30.5}) EXPECT_TRUE(all.contain(inside));
  for (const double outside : {0.9, 21.0, 29.9, 31.0}) EXPECT_FALSE(all.contain(outside));
}

TEST(EdfExclusionsTest, IgnoreWhatIsNoAnnotation) {
  for (const std::string text : {"+1|2", "x|2;BAD_;", "+1|nan;BAD_;", "+inf|2;BAD_;", "|;BAD_;"}) {
    EXPECT_TRUE(exclusionsOf(annotation(text)).empty()) << text;
  }
  EXPECT_FALSE(exclusionsOf("rubbish" + annotation("") + annotation("+1|2;BAD_x;")).empty());
}

}  // namespace
