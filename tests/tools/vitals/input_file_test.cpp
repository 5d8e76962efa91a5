// SPDX-License-Identifier: MIT
#include <tools/vitals/input_file.h>

#include <tests/tools/vitals/reading.h>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

namespace {

using namespace Zephly::recorders;
using captures::ScratchDirectory;

std::string openingError(const std::filesystem::path& path) {
  try {
    const InputFile file(path);
  } catch (const InputError& error) {
    return error.what();
  }
  return "";
}

TEST(InputFileTest, ReadsAtAnyPosition) {
  const ScratchDirectory scratch;
  const InputFile file(scratch.file("a", reading::bytesOf("0123456789")));
  EXPECT_EQ(file.size(), 10U);
  EXPECT_EQ(file.text(3, 4), "3456");
  EXPECT_EQ(file.text(10, 0), "");
}

TEST(InputFileTest, SaysWhereTheFileEnds) {
  const ScratchDirectory scratch;
  const InputFile file(scratch.file("a", reading::bytesOf("0123")));
  try {
    file.text(2, 3);
    FAIL() << "no error";
  } catch (const InputError& error) {
    EXPECT_EQ(std::string(error.what()),
              (scratch / "a").string() + ": at byte 4: the file ends here, too early");
  }
}

TEST(InputFileTest, OpensRegularFilesOnly) {
  const ScratchDirectory scratch;
  const auto pipe = scratch / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(openingError(pipe), pipe.string() + ": not a regular file");
  EXPECT_EQ(openingError(scratch.path()), scratch.path().string() + ": is a directory");
  EXPECT_EQ(openingError("/dev/null"), "/dev/null: not a regular file");
  EXPECT_EQ(openingError(scratch / "none"), (scratch / "none").string() + ": no such file");
}

}  // namespace
