// SPDX-License-Identifier: MIT
#include <capture/chain_writer.h>

#include <capture/reader.h>
#include <tests/support/captures.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::capture {
namespace {

using namespace std::chrono_literals;
using captures::Bytes;
using captures::ReadBack;
using captures::readBack;
using captures::ScratchDirectory;
using testing::ElementsAre;
using testing::HasSubstr;

// A notification with its number as its time and in its bytes.
Record numbered(std::uint8_t number) {
  return {{.monotonic = std::chrono::seconds(number)}, Value{1, 2, {{number}}, {}}};
}

Record connected(std::uint8_t number) {
  return {{.monotonic = std::chrono::seconds(number)}, Connected{1}};
}

// On a disk that has space, or has none.
class ChainWriterTest : public testing::Test {
 protected:
  ChainOptions options(bool overwrite = false) {
    ChainOptions options;
    options.writer.overwrite = overwrite;
    options.writer.calls.write = [this](int file, const void* bytes, std::size_t size) {
      if (!full_) return ::write(file, bytes, size);
      errno = ENOSPC;
      return ssize_t{-1};
    };
    options.written = [this](const Record& record) { written_.push_back(record); };
    return options;
  }

  ScratchDirectory scratch_;
  std::filesystem::path file_ = scratch_ / "walk.zcap";
  std::filesystem::path second_ = scratch_ / "walk.2.zcap";
  bool full_ = false;
  std::vector<Record> written_;
};

TEST_F(ChainWriterTest, LeavesNoFileWithAPartOfTheRecordsWhenThereIsNoMemory) {
  ChainOptions withoutMemory = options();
  int writes = 0;
  int failing = 0;
  withoutMemory.writer.calls.write = [&](int file, const void* bytes, std::size_t size) {
    if (++writes == failing) throw std::bad_alloc();
    errno = ENOSPC;
    return full_ ? ssize_t{-1} : ::write(file, bytes, size);
  };
  ChainWriter writer(file_, captures::somePreamble(), withoutMemory);
  writer.append(connected(1));
  full_ = true;
  writer.append(numbered(2));
  writer.append(numbered(3));
  full_ = false;
  failing = writes + 3;  // after the head and the first record
  writer.tryToContinue();
  EXPECT_TRUE(writer.isWaiting());
  EXPECT_EQ(writer.trouble(), "not enough memory");
  EXPECT_FALSE(std::filesystem::exists(second_));
  writer.append(numbered(4));
  EXPECT_EQ(writer.close(), std::nullopt);
  EXPECT_EQ(writer.files(), std::vector({file_, second_}));
}

TEST_F(ChainWriterTest, ContinuesInAnotherFileWhenThereIsSpaceAgain) {
  ChainWriter writer(file_, captures::somePreamble(), options());
  writer.append(numbered(1));
  full_ = true;
  writer.append(numbered(2));
  EXPECT_TRUE(writer.isWaiting());
  EXPECT_THAT(writer.trouble(), HasSubstr("No space left on device"));
  EXPECT_EQ(writer.recordedUntil(), 1s);
  writer.tryToContinue();
  EXPECT_TRUE(writer.isWaiting());
  EXPECT_FALSE(std::filesystem::exists(second_));
  full_ = false;
  writer.tryToContinue();
  EXPECT_FALSE(writer.isWaiting());
  writer.append(numbered(3));
  writer.append({{.monotonic = 4s}, Ended{}});
  EXPECT_EQ(writer.close(), std::nullopt);
  EXPECT_THAT(writer.files(), ElementsAre(file_, second_));
  EXPECT_EQ(writer.records(), 4U);
  EXPECT_EQ(writer.lost(), 0U);

  const ReadBack back = readBack(file_);
  EXPECT_TRUE(back.errors.empty());
  EXPECT_TRUE(back.ended);
  EXPECT_EQ(back.records, written_);
  EXPECT_EQ(back.records.size(), 4U);
  EXPECT_EQ(readBack(second_).preamble->continues, (Continuation{.part = 2, .lost = 0}));
}

TEST_F(ChainWriterTest, NotificationsBeyondTheMemoryAreLostAndTheLinkIsKept) {
  ChainOptions few = options();
  few.mostBytesInMemory = 250;  // three notifications
  ChainWriter writer(file_, captures::somePreamble(), std::move(few));
  full_ = true;
  for (std::uint8_t i = 1; i <= 5; ++i) writer.append(numbered(i));
  writer.append(connected(6));
  EXPECT_EQ(writer.lost(), 2U);
  full_ = false;
  writer.tryToContinue();
  writer.append({{.monotonic = 7s}, Ended{}});
  EXPECT_THAT(writer.close().value_or(""), HasSubstr("2 records lost"));
  Reader reader(file_);
  std::vector<Record> records;
  while (const auto record = reader.next()) records.push_back(*record);
  EXPECT_THAT(records,
              ElementsAre(numbered(1), numbered(2), numbered(3), connected(6), testing::_));
  EXPECT_EQ(reader.lostRecords(), 2U);
  EXPECT_EQ(reader.parts(), 2U);
  EXPECT_EQ(reader.file(), second_);
  EXPECT_TRUE(reader.ended());
}

TEST_F(ChainWriterTest, ADiskThatStaysFullIsAnErrorThatSaysHowMuchWasRecorded) {
  ChainWriter writer(file_, captures::somePreamble(), options());
  for (std::uint8_t i = 1; i <= 70; ++i) writer.append(numbered(i));
  full_ = true;
  for (std::uint8_t i = 71; i <= 73; ++i) writer.append(numbered(i));
  EXPECT_THAT(writer.close().value_or(""),
              AllOf(HasSubstr("cannot write "), HasSubstr("No space left on device"),
                    HasSubstr("recorded until 1:10, 3 records lost")));
  EXPECT_EQ(readBack(file_).records.size(), 70U);
}

TEST_F(ChainWriterTest, AFileThatExistsIsNotTouchedAndDoesNotBelongToTheRecording) {
  const Bytes old = captures::captureOf({numbered(99)});
  scratch_.file("walk.2.zcap", old);
  ChainWriter writer(file_, captures::somePreamble(), options(true));
  writer.append(numbered(1));
  full_ = true;
  writer.append(numbered(2));
  full_ = false;
  EXPECT_EQ(writer.close(), std::nullopt);
  EXPECT_THAT(writer.files(), ElementsAre(file_, scratch_ / "walk.3.zcap"));
  EXPECT_EQ(captures::contentOf(second_), old);
  EXPECT_THAT(readBack(file_).records, ElementsAre(numbered(1), numbered(2)));
}

TEST_F(ChainWriterTest, TheFilesAreFoundThroughASymbolicLink) {
  ChainWriter writer(file_, captures::somePreamble(), options());
  full_ = true;
  writer.append(numbered(1));
  full_ = false;
  EXPECT_EQ(writer.close(), std::nullopt);
  std::filesystem::create_directory(scratch_ / "elsewhere");
  std::filesystem::create_symlink(file_, scratch_ / "elsewhere/latest");
  EXPECT_THAT(readBack(scratch_ / "elsewhere/latest").records, ElementsAre(numbered(1)));
}

// Until the old file has been replaced, no file can continue the new one.
TEST_F(ChainWriterTest, AFailureBeforeAnOldFileIsReplacedLosesNeitherFile) {
  const Bytes old = {'k', 'e', 'e', 'p'};
  scratch_.file("walk.zcap", old);
  {
    ChainWriter writer(file_, captures::somePreamble(), options(true));
    writer.append({{}, StateChanged{CBManagerState::poweredOn}});
    full_ = true;
    writer.append(connected(1));
    EXPECT_TRUE(writer.close().has_value());
    EXPECT_TRUE(writer.hasKeptOldFile());
    EXPECT_EQ(captures::contentOf(file_), old);
  }
  full_ = false;
  written_.clear();
  ChainWriter writer(file_, captures::somePreamble(), options(true));
  writer.append({{}, StateChanged{CBManagerState::poweredOn}});
  full_ = true;
  writer.append(connected(1));
  full_ = false;
  writer.tryToContinue();
  writer.append(numbered(2));
  EXPECT_EQ(writer.close(), std::nullopt);
  EXPECT_FALSE(writer.hasKeptOldFile());
  EXPECT_THAT(writer.files(), ElementsAre(file_));
  EXPECT_EQ(readBack(file_).records, written_);
  EXPECT_EQ(written_.size(), 3U);
}

TEST_F(ChainWriterTest, ARecordThatFitsInNoFileIsLostAlone) {
  ChainWriter writer(file_, captures::somePreamble(), options());
  writer.append({{}, Value{1, 1, std::vector<std::uint8_t>(2'000'000), {}}});
  writer.append(numbered(1));
  EXPECT_THAT(writer.close().value_or(""), HasSubstr("1 record lost"));
  EXPECT_THAT(readBack(file_).records, ElementsAre(numbered(1)));
}

}  // namespace
}  // namespace Zephly::capture
