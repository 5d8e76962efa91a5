// SPDX-License-Identifier: MIT
#include <tools/export/pending_file.h>

#include <capture/file_lock.h>
#include <tests/support/captures.h>
#include <tests/support/text_of.h>

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Zephly::exporting;
using captures::ScratchDirectory;

std::size_t filesIn(const std::filesystem::path& directory) {
  using Files = std::filesystem::directory_iterator;
  return static_cast<std::size_t>(std::distance(Files(directory), Files()));
}

void fill(const PendingFile& file, const std::string& text) {
  std::ofstream(file.temporary()) << text;
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
  fill(file, "onetwo");
  EXPECT_FALSE(std::filesystem::exists(path));
  file.publish();
  EXPECT_EQ(textOf(path), "onetwo");
  EXPECT_EQ(filesIn(scratch.path()), 1U);
}

TEST(PendingFileTest, IsRemovedUnlessPublished) {
  const ScratchDirectory scratch;
  {
    PendingFile file(scratch / "rows.csv", Existing::refused);
    fill(file, "one");
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
  fill(file, "new");
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

// What a program that was killed has left has no lock.
TEST(PendingFileTest, RemovesWhatKilledProgramsLeft) {
  const ScratchDirectory scratch;
  scratch.file("rows.csv.part-4711", {'o', 'l', 'd'});
  scratch.file("rows.csv.part-4711-2", {'o', 'l', 'd'});
  const std::vector<std::string> others = {"rows.csv.part-", "rows.csv.part-1-", "rows.csv.part-1x",
                                           "more-rows.csv.part-1", "rows.csv.part-1.gz"};
  for (const std::string& other : others) scratch.file(other, {'o', 'l', 'd'});
  std::filesystem::create_directory(scratch / "rows.csv.part-2");
  { const PendingFile file(scratch / "rows.csv", Existing::refused); }
  EXPECT_FALSE(std::filesystem::exists(scratch / "rows.csv.part-4711"));
  EXPECT_FALSE(std::filesystem::exists(scratch / "rows.csv.part-4711-2"));
  EXPECT_EQ(filesIn(scratch.path()), others.size() + 1);
}

TEST(PendingFileTest, LeavesWhatAnotherProgramIsWriting) {
  const ScratchDirectory scratch;
  const auto path = scratch / "rows.csv";
  PendingFile first(path, Existing::replaced);
  fill(first, "first");
  PendingFile second(path, Existing::replaced);
  fill(second, "second");
  EXPECT_NE(first.temporary(), second.temporary());
  second.publish();
  EXPECT_EQ(textOf(path), "second");
  first.publish();
  EXPECT_EQ(textOf(path), "first");
  EXPECT_EQ(filesIn(scratch.path()), 1U);
}

TEST(PendingFileTest, NeverReplacesAFileInUse) {
  const ScratchDirectory scratch;
  const auto path = scratch.file("run.zcap", {'o', 'l', 'd'});
  const std::string reason = "cannot write " + path.string() + ": another program is writing it";
  {
    const auto recording = Zephly::capture::FileLock::take(path);
    EXPECT_EQ(refusal(path, Existing::replaced), reason);
  }
  // A recording that begins later.
  PendingFile file(path, Existing::replaced);
  const auto recording = Zephly::capture::FileLock::take(path);
  EXPECT_THROW(file.publish(), std::runtime_error);
  EXPECT_EQ(textOf(path), "old");
}

TEST(PendingFileTest, ALinkStaysALink) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch / "data");
  scratch.file("data/rows.csv", {'o', 'l', 'd'});
  std::filesystem::create_symlink("data/rows.csv", scratch / "latest");
  PendingFile file(scratch / "latest", Existing::replaced);
  fill(file, "new");
  file.publish();
  EXPECT_TRUE(std::filesystem::is_symlink(scratch / "latest"));
  EXPECT_EQ(textOf(scratch / "data" / "rows.csv"), "new");
}

}  // namespace
