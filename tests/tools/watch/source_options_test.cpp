// SPDX-License-Identifier: MIT
// The options of commands that can play a capture.

#include <tools/watch/source_options.h>

#include <capture/capture_error.h>
#include <tests/support/captures.h>

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace Zephly::watch {
namespace {

using Arguments = std::vector<std::string>;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

SourceOptions parse(const Arguments& arguments, Captures captures = Captures::offered) {
  CLI::App command;
  SourceOptions options;
  addSourceOptions(command, options, captures);
  command.parse(Arguments(arguments.rbegin(), arguments.rend()));
  checkTogether(options);
  return options;
}

SourceOptions parseCapture(const Arguments& arguments) {
  CLI::App command;
  SourceOptions options;
  addCaptureOptions(command, options);
  command.parse(Arguments(arguments.rbegin(), arguments.rend()));
  return options;
}

// The message of the error, or empty when the options were accepted.
template <class Parse>
std::string refusal(const Parse& parseThem, const Arguments& arguments) {
  try {
    static_cast<void>(parseThem(arguments));
    return {};
  } catch (const CLI::ParseError& error) {
    return error.what();
  }
}

TEST(SourceOptionsTest, ACommandDeclaresWhetherItPlaysCaptures) {
  const auto refused = [](const Arguments& arguments) {
    return parse(arguments, Captures::refused);
  };
  EXPECT_THAT(refusal(refused, {"--replay", "a.zcap"}), HasSubstr("not expected"));
  EXPECT_THAT(refusal(refused, {"--simulated", "--fast"}), HasSubstr("not expected"));
  EXPECT_THAT(refusal(refused, {"--speed", "2"}), HasSubstr("--speed requires --simulated"));
  EXPECT_EQ(refused({"--simulated", "--speed", "2"}).speed, 2);

  EXPECT_EQ(parse({"--replay", "a.zcap"}).replay, "a.zcap");
  EXPECT_EQ(parse({"--replay", "a.zcap", "--speed", "2"}).speed, 2);
  EXPECT_TRUE(parse({"--replay", "a.zcap", "--fast", "--duration", "3"}).fast);
  EXPECT_EQ(parse({"--replay", "a.zcap", "--from", "1:30"}).from, std::chrono::seconds(90));
  EXPECT_EQ(parse({"--replay", "a.zcap", "--from", "0"}).from, std::chrono::seconds(0));
  EXPECT_EQ(parse({"--simulated", "--speed", "2"}).speed, 2);
  EXPECT_FALSE(parse({}).replay);
}

TEST(SourceOptionsTest, RefusesOptionsThatContradictACapture) {
  const auto offered = [](const Arguments& arguments) { return parse(arguments); };
  const auto with = [&](Arguments more) {
    more.insert(more.begin(), {"--replay", "a.zcap"});
    return refusal(offered, more);
  };
  EXPECT_THAT(with({"--simulated"}), HasSubstr("--simulated excludes --replay"));
  EXPECT_THAT(with({"--seed", "1"}), HasSubstr("--seed requires --simulated"));
  EXPECT_THAT(with({"--adapter", "hci0"}), HasSubstr("excludes"));
  EXPECT_THAT(with({"--notifications", "signals"}), HasSubstr("excludes"));
  EXPECT_THAT(with({"--bus", "unix:path=/nowhere"}), HasSubstr("--replay: excludes --bus"));
  EXPECT_THAT(with({"--speed", "2", "--fast"}), HasSubstr("excludes"));
  EXPECT_THAT(with({"--replay", ""}), Not(IsEmpty()));
  EXPECT_THAT(refusal(offered, {"--replay", ""}), HasSubstr("expected the name of a file"));
  EXPECT_THAT(with({"--from", "2", "--fast"}), HasSubstr("excludes"));
  EXPECT_THAT(with({"--from", "-2"}), HasSubstr("a time like"));
  EXPECT_THAT(refusal(offered, {"--from", "2"}), HasSubstr("--from requires --replay"));
  EXPECT_THAT(refusal(offered, {"--fast"}), HasSubstr("--fast requires --replay"));
  EXPECT_THAT(refusal(offered, {"--speed", "2"}),
              HasSubstr("--speed: requires --simulated or --replay"));
}

TEST(SourceOptionsTest, ACommandForCapturesHasNoOtherSources) {
  const auto taken = [](const Arguments& arguments) { return parseCapture(arguments); };
  EXPECT_EQ(taken({"a.zcap"}).replay, "a.zcap");
  EXPECT_EQ(taken({"--speed", "0.5", "a.zcap"}).speed, 0.5);
  EXPECT_TRUE(taken({"a.zcap", "--fast"}).fast);
  EXPECT_THAT(refusal(taken, {}), HasSubstr("FILE is required"));
  EXPECT_THAT(refusal(taken, {""}), HasSubstr("FILE: expected the name of a file"));
  EXPECT_THAT(refusal(taken, {"a.zcap", "b.zcap"}), HasSubstr("not expected: b.zcap"));
  EXPECT_THAT(refusal(taken, {"a.zcap", "--speed", "0"}), HasSubstr("greater than 0"));
  EXPECT_THAT(refusal(taken, {"a.zcap", "--speed", "1", "--fast"}), HasSubstr("excludes"));
  EXPECT_THAT(refusal(taken, {"a.zcap", "--simulated"}), HasSubstr("not expected"));
}

TEST(SourceOptionsTest, TheSourceIsTheCapture) {
  const captures::ScratchDirectory scratch;
  const auto file = scratch.file("walk.zcap", captures::captureOf({}));
  main_queue::MainQueue queue;
  const auto made = [&](const Arguments& arguments) {
    return makeSource(
        queue, parse(arguments), [](std::string_view) {}, [] {});
  };
  EXPECT_THAT(made({"--replay", file.string()})->title(), testing::StartsWith("walk.zcap: "));
  EXPECT_EQ(made({"--replay", file.string()})->pace(), "");
  EXPECT_EQ(made({"--replay", file.string(), "--speed", "3"})->pace(), "speed 3");
  EXPECT_EQ(made({"--replay", file.string(), "--fast"})->pace(), "as fast as it goes");
  EXPECT_THROW(made({"--replay", "/nonexistent.zcap"}), capture::CaptureError);
}

}  // namespace
}  // namespace Zephly::watch
