// SPDX-License-Identifier: MIT
#include <zephly/session/version.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(VersionTest, Number) { EXPECT_EQ(ZephlyVersionNumber, 1.0); }

TEST(VersionTest, StringHasTheWhatMarkerTwoBlanksAndANewline) {
  EXPECT_EQ(std::string(ZephlyVersionString), "@(#)PROGRAM:Zephly  PROJECT:Zephly-SDK-1\n");
}

}  // namespace
