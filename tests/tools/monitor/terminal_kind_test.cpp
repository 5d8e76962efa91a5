// SPDX-License-Identifier: MIT
#include <tools/monitor/terminal_kind.h>

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace Zephly::monitor {
namespace {

TerminalKind kindOf(const std::map<std::string, std::string>& variables) {
  return terminalKind(true, [&](const char* name) -> const char* {
    const auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
  });
}

TEST(TerminalKindTest, AnOrdinaryTerminalHasAllFeatures) {
  const TerminalKind kind = kindOf({{"TERM", "xterm"}, {"LANG", "de_DE.UTF-8"}});
  EXPECT_TRUE(kind.terminal);
  EXPECT_TRUE(kind.drawable);
  EXPECT_TRUE(kind.unicode);
  EXPECT_EQ(kind.colors, Colors::ansi);
}

TEST(TerminalKindTest, OtherFilesHaveNoFeatures) {
  const TerminalKind kind = terminalKind(false, [](const char*) { return "xterm.UTF-8"; });
  EXPECT_FALSE(kind.terminal);
  EXPECT_FALSE(kind.drawable);
}

TEST(TerminalKindTest, ADumbOrUnknownTerminalHasNoScreen) {
  EXPECT_FALSE(kindOf({{"TERM", "dumb"}}).drawable);
  EXPECT_FALSE(kindOf({{"TERM", ""}}).drawable);
  EXPECT_FALSE(kindOf({}).drawable);
}

TEST(TerminalKindTest, NoColorForbidsColorsUnlessEmpty) {
  EXPECT_EQ(kindOf({{"TERM", "xterm"}, {"NO_COLOR", "1"}}).colors, Colors::none);
  EXPECT_EQ(kindOf({{"TERM", "xterm"}, {"NO_COLOR", ""}}).colors, Colors::ansi);
}

TEST(TerminalKindTest, UsesTheFirstLocaleThatIsSet) {
  EXPECT_FALSE(kindOf({{"LC_ALL", "C"}, {"LANG", "C.UTF-8"}}).unicode);
  EXPECT_TRUE(kindOf({{"LC_ALL", ""}, {"LC_CTYPE", "en_US.utf8"}, {"LANG", "C"}}).unicode);
  EXPECT_FALSE(kindOf({}).unicode);
}

}  // namespace
}  // namespace Zephly::monitor
