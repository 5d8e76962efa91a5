// SPDX-License-Identifier: MIT
#include <zephly/session/version.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Version, Number) { EXPECT_EQ(ZephlyVersionNumber, 1.0); }

TEST(Version, StringHasTheWhatMarkerTwoBlanksAndANewline) {
  EXPECT_EQ(std::string(ZephlyVersionString), "@(#)PROGRAM:Zephly  PROJECT:Zephly-SDK-1\n");
}

}  // namespace
