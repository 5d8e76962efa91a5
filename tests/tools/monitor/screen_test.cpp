// SPDX-License-Identifier: MIT
// The built program on a terminal: the screen, and the terminal's state after its end.

#include <tests/support/process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string leave = "\x1b[?25h\x1b[?1049l";

TEST(ProcessTest, FailsAtOnceWhereThereIsNoPseudoTerminal) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_THROW(Process(simulatedMonitor({}), Process::Output::terminal), std::runtime_error);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST(ScreenTest, DrawsAScreenAndRestoresTheTerminal) {
  Process process(simulatedMonitor({"--speed", "20", "--duration", "8"}), Process::Output::terminal,
                  goodTerminal);
  ASSERT_TRUE(process.readUntil("\x1b[?1049h\x1b[?25l"));
  ASSERT_TRUE(process.readUntil("connected"));
  EXPECT_FALSE(process.echoes());
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  const std::size_t end = run.output.find(leave);
  ASSERT_NE(end, std::string::npos);
  EXPECT_THAT(run.output.substr(0, end), HasSubstr("Respiration"));
  EXPECT_THAT(run.output.substr(end), AllOf(HasSubstr("Session of 8.0 s of strap time"),
                                            HasSubstr("ecg"), Not(HasSubstr("\x1b[?1049h"))));
  // Trace lines of the kit are never shown literally.
  EXPECT_THAT(run.output, Not(HasSubstr("e-05, ")));
}

TEST(ScreenTest, QAndControlCEndTheScreen) {
  for (const char* key : {"q", "\x03"}) {
    Process process(simulatedMonitor({}), Process::Output::terminal, goodTerminal);
    ASSERT_TRUE(process.readUntil("connected"));
    process.type(key);
    ASSERT_TRUE(process.readUntil("Session of "));
    EXPECT_TRUE(process.echoes());
    const Finished run = process.finish();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.output, HasSubstr(leave));
  }
}

TEST(ScreenTest, AFatalErrorRestoresTheTerminal) {
  Process process(simulatedMonitor({}), Process::Output::terminal, goodTerminal);
  ASSERT_TRUE(process.readUntil("connected"));
  process.sendSignal(SIGABRT);
  ASSERT_TRUE(process.readUntil(leave));
  EXPECT_TRUE(process.echoes());
  EXPECT_EQ(process.finish().exitCode, 128 + SIGABRT);
}

TEST(ScreenTest, FollowsTheSizeOfTheTerminal) {
  Process process(simulatedMonitor({}), Process::Output::terminal, goodTerminal);
  ASSERT_TRUE(process.readUntil("connected"));
  process.resizeTerminal(50, 10);
  ASSERT_TRUE(process.readUntil("60 x 20, not 50 x 10"));
  process.sendSignal(SIGTERM);
  EXPECT_EQ(process.finish().exitCode, 0);
}

TEST(ScreenTest, HasNoColorsWhenTheyAreDisabled) {
  Process process(simulatedMonitor({"--speed", "20", "--duration", "10"}),
                  Process::Output::terminal, {"TERM=xterm", "LC_ALL=C", "NO_COLOR=1"});
  const Finished run = process.finish();
  EXPECT_THAT(run.output, HasSubstr("connected"));
  EXPECT_THAT(run.output, Not(HasSubstr("\x1b[32m")));
  EXPECT_TRUE(std::all_of(run.output.begin(), run.output.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x80;
  })) << "the locale is not UTF-8";
}

TEST(ScreenTest, PrintsPlainLinesOnADumbTerminal) {
  Process process(simulatedMonitor({"--duration", "3"}), Process::Output::terminal, {"TERM=dumb"});
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.output, Not(HasSubstr("\x1b")));
  EXPECT_THAT(run.output, AllOf(HasSubstr("connected  electrodes"), HasSubstr("Session of 3.0 s")));
}

}  // namespace
