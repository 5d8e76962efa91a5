// SPDX-License-Identifier: MIT
#include <tools/vitals/line_source.h>

#include <tests/tools/vitals/reading.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Zephly::recorders;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class LineSourceTest : public testing::Test {
 protected:
  InputFile fileWith(const std::string& text) const {
    return InputFile(scratch_.file("a.txt", reading::bytesOf(text)));
  }
  // Lines and their positions.
  std::vector<std::pair<std::string, std::uint64_t>> linesOf(const std::string& text) const {
    const InputFile file = fileWith(text);
    LineSource source(file, 10);
    std::vector<std::pair<std::string, std::uint64_t>> lines;
    while (const auto line = source.next()) {
      lines.emplace_back(line->text, line->at);
    }
    EXPECT_EQ(source.position(), text.size());
    return lines;
  }

  captures::ScratchDirectory scratch_;
};

TEST_F(LineSourceTest, HasLinesWithTheirPositions) {
  EXPECT_THAT(linesOf(""), IsEmpty());
  EXPECT_THAT(linesOf("a\n\nbc\r\n"), ElementsAre(Pair("a", 0), Pair("", 2), Pair("bc", 3)));
  EXPECT_THAT(linesOf("a\rb\nno end"), ElementsAre(Pair("a\rb", 0), Pair("no end", 4)));
}

TEST_F(LineSourceTest, RefusesALineThatIsTooLong) {
  EXPECT_THAT(linesOf("0123456789\n"), ElementsAre(Pair("0123456789", 0)));
  const InputFile file = fileWith("a\n0123456789x\n");
  LineSource source(file, 10);
  EXPECT_TRUE(source.next());
  try {
    source.next();
    ADD_FAILURE() << "no error";
  } catch (const InputError& error) {
    EXPECT_TRUE(std::string(error.what()).ends_with("at byte 2: a line of more than 10 bytes"));
  }
}

TEST_F(LineSourceTest, GoesBackAndOn) {
  std::string text;
  for (int i = 0; i < 50'000; ++i) text += std::to_string(100'000 + i) + "\n";
  const InputFile file = fileWith(text);
  LineSource source(file, 10);
  for (int i = 0; i < 50'000; ++i) ASSERT_EQ(source.next()->text, std::to_string(100'000 + i));
  EXPECT_FALSE(source.next());
  source.seek(7);
  EXPECT_EQ(source.position(), 7U);
  EXPECT_EQ(source.next()->text, "100001");
  EXPECT_EQ(source.position(), 14U);
  source.seek(7 * 49'999);
  EXPECT_EQ(source.next()->text, "149999");
  EXPECT_FALSE(source.next());
  source.seek(text.size() + 5);
  EXPECT_FALSE(source.next());
}

}  // namespace
