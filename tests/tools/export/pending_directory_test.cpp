// SPDX-License-Identifier: MIT
#include <tools/export/pending_directory.h>

#include <capture/file_lock.h>
#include <tests/support/captures.h>
#include <tests/support/text_of.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Zephly::exporting;
using captures::ScratchDirectory;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::vector<std::string> setNames = {"one.csv", "two.csv"};

std::vector<std::string> namesIn(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void fillSet(const std::filesystem::path& directory, const std::string& text) {
  for (const std::string& name : setNames) std::ofstream(directory / name) << text;
}

void publishSet(const std::filesystem::path& path, Existing existing) {
  PendingDirectory set(path, existing, setNames);
  fillSet(set.temporary(), "new");
  set.publish();
}

std::string setRefusal(const std::filesystem::path& path, Existing existing) {
  try {
    const PendingDirectory set(path, existing, setNames);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

mode_t permissionsOf(const std::filesystem::path& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

TEST(PendingDirectoryTest, GetsItsNameWhenItIsPublished) {
  const ScratchDirectory scratch;
  PendingDirectory set(scratch / "walk", Existing::refused, setNames);
  fillSet(set.temporary(), "new");
  EXPECT_FALSE(std::filesystem::exists(scratch / "walk"));
  set.publish();
  EXPECT_THAT(namesIn(scratch.path()), ElementsAre("walk"));
  EXPECT_THAT(namesIn(scratch / "walk"), ElementsAre("one.csv", "two.csv"));
  EXPECT_EQ(textOf(scratch / "walk" / "two.csv"), "new");
}

TEST(PendingDirectoryTest, IsRemovedWithItsFilesUnlessPublished) {
  const ScratchDirectory scratch;
  {
    const PendingDirectory set(scratch / "walk", Existing::refused, setNames);
    fillSet(set.temporary(), "new");
    EXPECT_EQ(namesIn(scratch.path()).size(), 1U);
  }
  EXPECT_THAT(namesIn(scratch.path()), IsEmpty());
}

TEST(PendingDirectoryTest, ASlashAtTheEndIsNoPartOfTheName) {
  const ScratchDirectory scratch;
  publishSet(scratch.path().string() + "/walk/", Existing::refused);
  EXPECT_THAT(namesIn(scratch.path()), ElementsAre("walk"));
}

TEST(PendingDirectoryTest, TakesThePlaceOfAnEmptyDirectoryWithItsPermissions) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch / "walk");
  ASSERT_EQ(::chmod((scratch / "walk").c_str(), 0700), 0);
  publishSet(scratch / "walk", Existing::refused);
  EXPECT_THAT(namesIn(scratch / "walk"), ElementsAre("one.csv", "two.csv"));
  EXPECT_EQ(permissionsOf(scratch / "walk"), 0700U);
}

TEST(PendingDirectoryTest, ReplacesAnEarlierSetOnlyOnRequest) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch / "walk");
  ASSERT_EQ(::chmod((scratch / "walk").c_str(), 0700), 0);
  scratch.file("walk/one.csv", {'o', 'l', 'd'});
  EXPECT_EQ(setRefusal(scratch / "walk", Existing::refused),
            "cannot write " + (scratch / "walk").string() + ": it exists already (see --force)");
  EXPECT_EQ(textOf(scratch / "walk" / "one.csv"), "old");
  publishSet(scratch / "walk", Existing::replaced);
  EXPECT_THAT(namesIn(scratch.path()), ElementsAre("walk"));
  EXPECT_THAT(namesIn(scratch / "walk"), ElementsAre("one.csv", "two.csv"));
  EXPECT_EQ(textOf(scratch / "walk" / "one.csv"), "new");
  EXPECT_EQ(permissionsOf(scratch / "walk"), 0700U);
}

TEST(PendingDirectoryTest, NeverReplacesOtherFiles) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch / "walk");
  fillSet(scratch / "walk", "old");
  const auto expectRefused = [&](const std::string& other) {
    for (const Existing existing : {Existing::refused, Existing::replaced}) {
      EXPECT_EQ(setRefusal(scratch / "walk", existing),
                "cannot write " + (scratch / "walk").string() + ": it holds other files, such as " +
                    other + "; name a new directory");
    }
  };
  scratch.file("walk/notes.txt", {'x'});
  expectRefused("notes.txt");
  std::filesystem::remove(scratch / "walk" / "notes.txt");
  std::filesystem::remove(scratch / "walk" / "one.csv");
  std::filesystem::create_directory(scratch / "walk" / "one.csv");
  expectRefused("one.csv");
  std::filesystem::remove(scratch / "walk" / "one.csv");
  std::filesystem::create_symlink("two.csv", scratch / "walk" / "one.csv");
  expectRefused("one.csv");
  EXPECT_EQ(textOf(scratch / "walk" / "two.csv"), "old");
}

TEST(PendingDirectoryTest, NeverReplacesWhatWasCreatedInTheMeantime) {
  const ScratchDirectory scratch;
  for (const Existing existing : {Existing::refused, Existing::replaced}) {
    PendingDirectory set(scratch / "walk", existing, setNames);
    fillSet(set.temporary(), "new");
    std::filesystem::create_directory(scratch / "walk");
    scratch.file("walk/notes.txt", {'x'});
    EXPECT_THROW(set.publish(), std::runtime_error);
    EXPECT_THAT(namesIn(scratch / "walk"), ElementsAre("notes.txt"));
    std::filesystem::remove_all(scratch / "walk");
  }
}

TEST(PendingDirectoryTest, NeverReplacesARecordingInUse) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch / "walk");
  fillSet(scratch / "walk", "old");
  const auto recording = Zephly::capture::FileLock::take(scratch / "walk" / "two.csv");
  EXPECT_EQ(setRefusal(scratch / "walk", Existing::replaced),
            "cannot write " + (scratch / "walk" / "two.csv").string() +
                ": another program is writing it");
  EXPECT_EQ(textOf(scratch / "walk" / "two.csv"), "old");
}

TEST(PendingDirectoryTest, RefusesPlacesThatCannotBeRenamed) {
  const ScratchDirectory scratch;
  scratch.file("walk", {'x'});
  EXPECT_THAT(setRefusal(scratch / "walk", Existing::replaced), HasSubstr(": not a directory"));
  EXPECT_THAT(setRefusal(".", Existing::replaced), HasSubstr("the current directory"));
  EXPECT_THAT(setRefusal("/proc", Existing::replaced), HasSubstr("a mounted file system"));
  EXPECT_THAT(setRefusal(scratch / "no" / "walk", Existing::refused),
              HasSubstr(": No such file or directory"));
  std::filesystem::create_symlink("gone", scratch / "link");
  EXPECT_THAT(setRefusal(scratch / "link", Existing::replaced), HasSubstr("does not exist"));
}

TEST(PendingDirectoryTest, ALinkStaysALink) {
  const ScratchDirectory scratch;
  std::filesystem::create_directory(scratch / "walk");
  std::filesystem::create_directory_symlink("walk", scratch / "latest");
  publishSet(scratch / "latest", Existing::refused);
  EXPECT_TRUE(std::filesystem::is_symlink(scratch / "latest"));
  EXPECT_EQ(textOf(scratch / "walk" / "one.csv"), "new");
  EXPECT_THAT(namesIn(scratch.path()), ElementsAre("latest", "walk"));
}

TEST(PendingDirectoryTest, RemovesWhatAKilledProgramLeft) {
  const ScratchDirectory scratch;
  const pid_t child = ::fork();
  if (child == 0) {
    const PendingDirectory set(scratch / "walk", Existing::refused, setNames);
    fillSet(set.temporary(), "half");
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  const std::string leftover = "walk.part-" + std::to_string(child);
  ASSERT_THAT(namesIn(scratch.path()), ElementsAre(leftover));

  // What holds anything else is left.
  std::filesystem::create_directory(scratch / "walk.part-1");
  scratch.file("walk.part-1/notes.txt", {'x'});
  publishSet(scratch / "walk", Existing::refused);
  EXPECT_THAT(namesIn(scratch.path()), ElementsAre("walk", "walk.part-1"));
  EXPECT_THAT(namesIn(scratch / "walk.part-1"), ElementsAre("notes.txt"));
}

TEST(PendingDirectoryTest, LeavesWhatAnotherProgramIsWriting) {
  const ScratchDirectory scratch;
  const PendingDirectory first(scratch / "walk", Existing::replaced, setNames);
  fillSet(first.temporary(), "first");
  publishSet(scratch / "walk", Existing::replaced);
  EXPECT_THAT(namesIn(first.temporary()), ElementsAre("one.csv", "two.csv"));
}

}  // namespace
