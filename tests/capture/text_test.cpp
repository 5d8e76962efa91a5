// SPDX-License-Identifier: MIT
#include <capture/text.h>

#include <gtest/gtest.h>

#include <chrono>

namespace Zephly::capture {
namespace {

using namespace std::chrono_literals;

TEST(TextClockTest, ShowsHoursFromTheFirstOneOn) {
  EXPECT_EQ(clockText(7s), "0:07");
  EXPECT_EQ(clockText(750'999ms), "12:30");
  EXPECT_EQ(clockText(3723s), "1:02:03");
}

TEST(TextPrintableTest, HasNoControlCharactersAndNoInvalidUtf8) {
  EXPECT_EQ(printable("a\x1b[2J\r\n\x7f\xc2\x9b\x9b\xe2\x82z"), "a?[2J??????z");
  EXPECT_EQ(printable("\xc2\xb0"
                      "C"),
            "\xc2\xb0"
            "C");
}

}  // namespace
}  // namespace Zephly::capture
