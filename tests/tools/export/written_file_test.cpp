// SPDX-License-Identifier: MIT
#include <tools/export/written_file.h>

#include <gtest/gtest.h>

namespace Zephly::exporting {
namespace {

using namespace std::chrono_literals;

TEST(WrittenFileTest, IsALineOfATable) {
  EXPECT_EQ(
      writtenText({{.path = "walk.edf", .bytes = 14'312'448, .span = WrittenFile::Span{0s, 1h}},
                   {.path = "walk/ecg.csv",
                    .bytes = 999'949,
                    .span = WrittenFile::Span{1s, 59min},
                    .rows = 1'799'940},
                   {.path = "walk/motion.csv", .bytes = 999, .rows = 0},
                   {.path = "walk/battery.csv",
                    .bytes = 999'950,
                    .span = WrittenFile::Span{1s, 1s},
                    .rows = 1}}),
      "walk.edf           14.3 MB  0:00 to 1:00:00\n"
      "walk/ecg.csv      999.9 kB  0:01 to 59:00    1799940 rows\n"
      "walk/motion.csv      999 B  empty                  0 rows\n"
      "walk/battery.csv    1.0 MB  0:01 to 0:01            1 row\n");
}

TEST(WrittenFileTest, ANameThatWouldControlTheTerminalIsShownWithoutIt) {
  EXPECT_EQ(writtenText({{.path = "a\x1B[2J.edf", .bytes = 1, .span = WrittenFile::Span{}}}),
            "a?[2J.edf  1 B  0:00 to 0:00\n");
}

}  // namespace
}  // namespace Zephly::exporting
