#include <tools/watch/diagnostics_catcher.h>

#include <zephly/platform/console.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

namespace Zephly::watch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

TEST(DiagnosticsCatcherTest, CapturesTheLinesOfTheKitAndOfCout) {
  Lines lines;
  const DiagnosticsCatcher catcher([&](std::string_view line) { lines.emplace_back(line); });
  console() << "0.5, " << -0.25F << std::endl;
  std::cout << "one\n\ntw" << 'o' << std::endl;
  EXPECT_THAT(lines, ElementsAre("0.5, -0.25", "one", "", "two"));
}

TEST(DiagnosticsCatcherTest, ForwardsAnUnterminatedLineAtTheEnd) {
  Lines lines;
  {
    const DiagnosticsCatcher catcher([&](std::string_view line) { lines.emplace_back(line); });
    std::cout << "half" << std::flush;
    EXPECT_THAT(lines, IsEmpty());
  }
  EXPECT_THAT(lines, ElementsAre("half"));
}

TEST(DiagnosticsCatcherTest, RestoresTheBufferOfCout) {
  std::streambuf* const before = std::cout.rdbuf();
  {
    const DiagnosticsCatcher catcher([](std::string_view) {});
    EXPECT_NE(std::cout.rdbuf(), before);
  }
  EXPECT_EQ(std::cout.rdbuf(), before);
}

TEST(DiagnosticsCatcherTest, ItsHandlerMayWriteALine) {
  Lines lines;
  const DiagnosticsCatcher catcher([&](std::string_view line) {
    lines.emplace_back(line);
    if (line == "first") std::cout << "second\n";
  });
  std::cout << "first\nthird\n";
  EXPECT_THAT(lines, ElementsAre("first", "second", "third"));
}

}  // namespace
}  // namespace Zephly::watch
