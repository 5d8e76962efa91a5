// SPDX-License-Identifier: MIT
// Captures are read as streams: memory does not grow with them. Not with sanitizers, whose shadow
// memory is counted, too.

#include <tests/support/captures.h>
#include <tests/support/process.h>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>

namespace {

// The most that a process has needed which this one has waited for, kilobytes.
long mostOfChildren() {
  struct rusage usage {};
  EXPECT_EQ(::getrusage(RUSAGE_CHILDREN, &usage), 0);
  return usage.ru_maxrss;
}

TEST(ProcessMemoryTest, DoesNotGrowWithTheCapture) {
  const captures::ScratchDirectory scratch;
  const auto process = [&](const std::string& name, const std::string& duration) {
    const std::filesystem::path file = scratch / (name + ".zcap");
    ASSERT_EQ(runOther(ZEPHLY_MAKE_CAPTURE, {file.string(), "--duration", duration}).exitCode, 0);
    ASSERT_EQ(runProgram({"process", file.string(), "--out", (scratch / "out").string()}).exitCode,
              0);
  };
  process("short", "3m");
  const long before = mostOfChildren();
  process("long", "40m");
  // The samples of the longer one are 20 MB as floats.
  EXPECT_LT(mostOfChildren() - before, 8'000);
  EXPECT_LT(mostOfChildren(), 100'000);
}

}  // namespace
