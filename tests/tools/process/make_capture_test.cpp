// SPDX-License-Identifier: MIT
// The program that makes captures for benchmarks and for tests of many captures.

#include <tests/support/captures.h>
#include <tests/support/process.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using captures::ScratchDirectory;
using testing::HasSubstr;

Finished makeCapture(const std::filesystem::path& file, std::vector<std::string> options) {
  options.insert(options.begin(), file.string());
  return runOther(ZEPHLY_MAKE_CAPTURE, options);
}

TEST(MakeCaptureTest, WritesAnOrderlyCapture) {
  const ScratchDirectory scratch;
  const std::filesystem::path file = scratch / "a.zcap";
  ASSERT_EQ(
      makeCapture(file, {"--duration", "60", "--losses", "2", "--electrodes-off", "1"}).exitCode,
      0);
  const Finished inspected = runProgram({"inspect", file.string(), "--json"});
  EXPECT_EQ(inspected.exitCode, 0) << inspected.errors;
  const ScratchDirectory results;
  ASSERT_EQ(runProgram({"process", file.string(), "--out", results.path().string()}).exitCode, 0);
  const captures::Bytes text = captures::contentOf(results.path() / "a/summary.json");
  const auto json = nlohmann::json::parse(text.begin(), text.end());
  EXPECT_EQ(json["links"]["lost"], 2);
  EXPECT_EQ(json["links"]["connected"], 3);
  EXPECT_GT(json["contact"]["share"], 0.4);
  EXPECT_LT(json["contact"]["share"], 0.97);
  EXPECT_GT(json["vitals"]["beats"]["count"], 15);
}

TEST(MakeCaptureTest, TheSameOptionsGiveTheSameBytes) {
  const ScratchDirectory scratch;
  const auto bytesOf = [&](const std::string& name, const std::string& seed) {
    EXPECT_EQ(makeCapture(scratch / name, {"--duration", "20", "--seed", seed}).exitCode, 0);
    return captures::contentOf(scratch / name);
  };
  const captures::Bytes first = bytesOf("a", "1");
  EXPECT_EQ(bytesOf("b", "1"), first);
  EXPECT_NE(bytesOf("c", "2"), first);
}

TEST(MakeCaptureTest, RefusesWhatItCannotDo) {
  const ScratchDirectory scratch;
  const std::filesystem::path file = scratch.file("there", {1});
  EXPECT_THAT(makeCapture(file, {}).errors, HasSubstr("exists already"));
  EXPECT_EQ(captures::contentOf(file), captures::Bytes{1});
  EXPECT_EQ(makeCapture(scratch / "a", {"--losses", "-1"}).exitCode, 2);
  const Finished full = makeCapture(scratch / "b", {"--duration", "60", "--losses", "20"});
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_THAT(full.errors, HasSubstr("need a longer duration"));
  EXPECT_FALSE(std::filesystem::exists(scratch / "b"));
}

}  // namespace
