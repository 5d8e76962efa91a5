// SPDX-License-Identifier: MIT
#include <capture/file_lock.h>

#include <capture/writer.h>
#include <tests/support/captures.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <utility>

namespace Zephly::capture {
namespace {

using captures::ScratchDirectory;

class FileLockTest : public testing::Test {
 protected:
  ScratchDirectory scratch_;
  std::filesystem::path file_ = scratch_ / "walk.zcap";
};

TEST_F(FileLockTest, ACaptureIsLockedWhileItIsWritten) {
  {
    const Writer writer(file_, captures::somePreamble());
    EXPECT_FALSE(FileLock::take(file_));
    std::filesystem::create_symlink(file_, scratch_ / "link");
    EXPECT_FALSE(FileLock::take(scratch_ / "link"));
  }
  EXPECT_TRUE(FileLock::take(file_));
}

TEST_F(FileLockTest, OneAtATime) {
  scratch_.file("walk.zcap", {'a'});
  auto first = FileLock::take(file_);
  ASSERT_TRUE(first);
  EXPECT_FALSE(FileLock::take(file_));
  const FileLock moved = std::move(*first);
  first.reset();
  EXPECT_FALSE(FileLock::take(file_));
}

TEST_F(FileLockTest, NothingRecordsToWhatIsNoRegularFile) {
  EXPECT_TRUE(FileLock::take(file_));
  EXPECT_FALSE(std::filesystem::exists(file_));
  EXPECT_TRUE(FileLock::take(scratch_.path()));
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  EXPECT_TRUE(FileLock::take(file_));
}

}  // namespace
}  // namespace Zephly::capture
