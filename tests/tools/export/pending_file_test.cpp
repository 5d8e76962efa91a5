// SPDX-License-Identifier: MIT
#include <tools/export/pending_file.h>

#include <tests/support/captures.h>
#include <tests/support/text_of.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace Zephly::exporting;
using captures::ScratchDirectory;

std::size_t filesIn(const std::filesystem::path& directory) {
  using Files = std::filesystem::directory_iterator;
  return static_cast<std::size_t>(std::distance(Files(directory), Files()));
}

std::string refusal(const std::filesystem::path& path, Existing existing) {
  try {
    const PendingFile file(path, existing);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(PendingFileTest, GetsItsNameWhenItIsPublished) {
  const ScratchDirectory scratch;
  const auto path = scratch / "rows.csv";
  PendingFile file(path, Existing::refused);
  file.write("one");
  file.write("two");
  EXPECT_FALSE(std::filesystem::exists(path));
  file.publish();
  EXPECT_EQ(textOf(path), "onetwo");
  EXPECT_EQ(filesIn(scratch.path()), 1U);
}

TEST(PendingFileTest, IsRemovedUnlessPublished) {
  const ScratchDirectory scratch;
  {
    PendingFile file(scratch / "rows.csv", Existing::refused);
    file.write("one");
    EXPECT_EQ(filesIn(scratch.path()), 1U);
  }
  EXPECT_EQ(filesIn(scratch.path()), 0U);
}

TEST(PendingFileTest, ReplacesOnlyOnRequest) {
  const ScratchDirectory scratch;
  const auto path = scratch.file("rows.csv", {'o', 'l', 'd'});
  EXPECT_EQ(refusal(path, Existing::refused),
            "cannot write " + path.string() + ": it exists already (see --force)");
  EXPECT_EQ(textOf(path), "old");
  PendingFile file(path, Existing::replaced);
  file.write("new");
  EXPECT_EQ(textOf(path), "old");
  file.publish();
  EXPECT_EQ(textOf(path), "new");
}

TEST(PendingFileTest, DoesNotReplaceAFileCreatedInTheMeantime) {
  const ScratchDirectory scratch;
  PendingFile file(scratch / "rows.csv", Existing::refused);
  scratch.file("rows.csv", {'o', 'l', 'd'});
  EXPECT_THROW(file.publish(), std::runtime_error);
  EXPECT_EQ(textOf(scratch / "rows.csv"), "old");
}

TEST(PendingFileTest, RefusesOtherThanRegularFiles) {
  const ScratchDirectory scratch;
  EXPECT_EQ(refusal(scratch.path(), Existing::replaced),
            "cannot write " + scratch.path().string() + ": not a regular file");
  EXPECT_EQ(refusal("/dev/full", Existing::replaced), "cannot write /dev/full: not a regular file");
}

TEST(PendingFileTest, RefusesAMissingDirectory) {
  const ScratchDirectory scratch;
  const auto path = scratch / "nowhere" / "rows.csv";
  EXPECT_EQ(refusal(path, Existing::refused),
            "cannot write " + path.string() + ": No such file or directory");
}

// The leftover of a killed program is not used.
TEST(PendingFileTest, UsesAnotherNameWhenALeftoverExists) {
  const ScratchDirectory scratch;
  const auto path = scratch / "rows.csv";
  std::filesystem::path leftover;
  {
    const PendingFile file(path, Existing::refused);
    leftover = file.temporary();
  }
  scratch.file(leftover.filename(), {'o', 'l', 'd'});
  PendingFile file(path, Existing::refused);
  file.publish();
  EXPECT_EQ(textOf(leftover), "old");
  EXPECT_EQ(textOf(path), "");
}

}  // namespace
