// SPDX-License-Identifier: MIT
#include <zephly/platform/console.h>

#include <tests/support/captured_output.h>
#include <zephly/platform/fatal_error.h>

#include <gtest/gtest.h>

#include <iomanip>
#include <ios>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>

namespace {

TEST(ConsoleTest, WritesToStandardOutputsBuffer) {
  const CapturedOutput output;
  Zephly::console() << "one" << std::endl;
  EXPECT_EQ(output.text(), "one\n");
}

TEST(ConsoleTest, FollowsAReplacedBuffer) {
  const CapturedOutput first;
  {
    const CapturedOutput second;
    Zephly::console() << "inner" << std::endl;
    EXPECT_EQ(second.text(), "inner\n");
  }
  Zephly::console() << "outer" << std::endl;
  EXPECT_EQ(first.text(), "outer\n");
}

TEST(ConsoleTest, ItsFormattingIsIndependentOfStdCout) {
  const CapturedOutput output;
  const std::ios saved(nullptr);
  std::cout << std::hex << std::scientific << std::uppercase << std::showpos;
  std::cout.precision(12);
  Zephly::console() << 0.5f << ", " << 31 << std::endl;
  std::cout.unsetf(std::ios::floatfield | std::ios::showpos | std::ios::uppercase);
  std::cout << std::dec;
  std::cout.precision(6);
  EXPECT_EQ(output.text(), "0.5, 31\n");
}

TEST(ConsoleTest, ResetsTheFormatForEachLine) {
  const CapturedOutput output;
  struct GroupedDigits : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  std::ostream& stream = Zephly::console();
  stream << std::hex << std::scientific << std::uppercase << std::showpos << std::boolalpha
         << std::setprecision(12) << std::setfill('*') << std::left;
  stream.imbue(std::locale(std::locale::classic(), new GroupedDigits));
  stream.width(20);
  Zephly::console() << 1234567 << ", " << 0.123456789 << ", " << true << std::endl;
  EXPECT_EQ(output.text(), "1234567, 0.123457, 1\n");
}

TEST(ConsoleTest, ResetsTheExceptionMask) {
  class Broken : public std::streambuf {};  // accepts nothing
  Broken broken;
  auto* original = std::cout.rdbuf(&broken);
  Zephly::console().exceptions(std::ios::badbit | std::ios::failbit);
  EXPECT_NO_THROW(Zephly::console() << "lost" << std::endl);
  Zephly::console().exceptions(std::ios::badbit | std::ios::failbit);
  std::cout.rdbuf(nullptr);
  EXPECT_NO_THROW(Zephly::console() << "lost" << std::endl);
  std::cout.rdbuf(original);
  const CapturedOutput output;
  Zephly::console() << "seen" << std::endl;
  EXPECT_EQ(output.text(), "seen\n");
}

TEST(ConsoleTest, WritesAgainAfterAFailedBuffer) {
  class Broken : public std::streambuf {};  // accepts nothing
  Broken broken;
  auto* original = std::cout.rdbuf(&broken);
  Zephly::console() << "lost" << std::endl;
  std::cout.rdbuf(original);
  const CapturedOutput output;
  Zephly::console() << "seen" << std::endl;
  EXPECT_EQ(output.text(), "seen\n");
}

TEST(FatalErrorDeathTest, WritesItsMessageToStandardErrorAndAborts) {
  // An emulator adds its own line.
  EXPECT_EXIT(Zephly::fatalError("the reason"), testing::KilledBySignal(SIGABRT),
              "^zephly: fatal error: the reason\n(qemu: [^\n]*\n)?$");
}

}  // namespace
