// SPDX-License-Identifier: MIT
#include <capture/writer.h>

#include <tests/support/captures.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace Zephly::capture {
namespace {

using captures::Bytes;
using captures::ReadBack;
using captures::readBack;
using captures::ScratchDirectory;
using testing::HasSubstr;

Record valueOf(std::uint8_t byte) { return {{}, Value{1, 2, {{byte}}, {}}}; }

std::string refusalOf(const std::filesystem::path& file, WriterOptions options = {}) {
  try {
    const Writer writer(file, captures::somePreamble(), std::move(options));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "it was opened";
}

class WriterTest : public testing::Test {
 protected:
  // Every record of the file, which must be undamaged.
  std::vector<Record> recordsIn() const {
    const ReadBack back = readBack(file_);
    EXPECT_TRUE(back.errors.empty()) << back.errors.front().what();
    return back.records;
  }

  ScratchDirectory scratch_;
  std::filesystem::path file_ = scratch_ / "c.zcap";
};

TEST_F(WriterTest, ARecordIsInTheFileWhenAppendReturns) {
  Writer writer(file_, captures::somePreamble());
  EXPECT_TRUE(recordsIn().empty());
  for (std::uint8_t i = 0; i < 5; ++i) {
    writer.append(valueOf(i));
    EXPECT_EQ(recordsIn().size(), i + 1U);
    EXPECT_EQ(writer.bytes(), std::filesystem::file_size(file_));
  }
}

TEST_F(WriterTest, EachRecordIsOneWrite) {
  int writes = 0;
  WriterOptions options;
  options.calls.write = [&](int file, const void* bytes, std::size_t size) {
    ++writes;
    return ::write(file, bytes, size);
  };
  Writer writer(file_, captures::somePreamble(), std::move(options));
  const int before = writes;
  for (int i = 0; i < 10; ++i) writer.append(valueOf(1));
  EXPECT_EQ(writes - before, 10);
}

TEST_F(WriterTest, AnExistingFileIsReplacedOnlyOnRequest) {
  scratch_.file("c.zcap", {'k', 'e', 'e', 'p'});
  EXPECT_THAT(refusalOf(file_), HasSubstr("c.zcap: it exists already"));
  EXPECT_EQ(captures::contentOf(file_), (Bytes{'k', 'e', 'e', 'p'}));
  {
    Writer writer(file_, captures::somePreamble(), {.overwrite = true});
    writer.append(valueOf(1));
  }
  EXPECT_EQ(recordsIn().size(), 1U);
}

std::size_t filesIn(const std::filesystem::path& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder),
                                                std::filesystem::directory_iterator()));
}

TEST_F(WriterTest, AnExistingFileStaysUntilSomethingOfALinkIsRecorded) {
  const Bytes old = {'k', 'e', 'e', 'p'};
  scratch_.file("c.zcap", old);
  {
    Writer writer(file_, captures::somePreamble(), {.overwrite = true});
    EXPECT_TRUE(writer.append({{}, StateChanged{CBManagerState::poweredOn}}));
    EXPECT_TRUE(writer.append({{}, Ended{}}));
    EXPECT_EQ(writer.close(), std::nullopt);
    EXPECT_FALSE(writer.isInPlace());
  }
  EXPECT_EQ(captures::contentOf(file_), old);
  EXPECT_EQ(filesIn(scratch_.path()), 1U);
  {
    Writer writer(file_, captures::somePreamble(), {.overwrite = true});
    EXPECT_THAT(refusalOf(file_, {.overwrite = true}), HasSubstr("another program is writing it"));
    EXPECT_TRUE(writer.append({{}, Connected{1}}));
    EXPECT_EQ(writer.close(), std::nullopt);
    EXPECT_TRUE(writer.isInPlace());
  }
  EXPECT_EQ(recordsIn().size(), 1U);
  EXPECT_EQ(filesIn(scratch_.path()), 1U);
}

TEST_F(WriterTest, AnExistingFileStaysOnAFullDisk) {
  const Bytes old = {'k', 'e', 'e', 'p'};
  scratch_.file("c.zcap", old);
  WriterOptions options{.overwrite = true};
  options.calls.write = [](int, const void*, std::size_t) {
    errno = ENOSPC;
    return ssize_t{-1};
  };
  EXPECT_THAT(refusalOf(file_, std::move(options)), HasSubstr("No space left on device"));
  EXPECT_EQ(captures::contentOf(file_), old);
  EXPECT_EQ(filesIn(scratch_.path()), 1U);
}

TEST_F(WriterTest, AReplacedFileIsSafeOnTheDiskFirst) {
  scratch_.file("c.zcap", {'k', 'e', 'e', 'p'});
  WriterOptions options{.overwrite = true};
  options.calls.synchronize = [](int) {
    errno = EIO;
    return -1;
  };
  Writer writer(file_, captures::somePreamble(), std::move(options));
  writer.append(valueOf(1));
  EXPECT_THAT(writer.close().value_or(""),
              AllOf(HasSubstr("Input/output error"), HasSubstr("the recording is in ")));
  EXPECT_FALSE(writer.isSynchronized());
  EXPECT_EQ(captures::contentOf(file_), (Bytes{'k', 'e', 'e', 'p'}));
  EXPECT_EQ(filesIn(scratch_.path()), 2U);
}

TEST_F(WriterTest, ADiscardedFileIsRemoved) {
  Writer writer(file_, captures::somePreamble());
  writer.append(valueOf(1));
  writer.discard();
  EXPECT_EQ(filesIn(scratch_.path()), 0U);
}

TEST_F(WriterTest, OneRefusalToWriteOrToSynchronizeIsNotTheEnd) {
  int writes = 0;
  std::atomic<int> synchronizations = 0;
  WriterOptions options;
  options.calls.write = [&](int file, const void* bytes, std::size_t size) {
    if (++writes % 2 == 0) return ::write(file, bytes, size);
    errno = EAGAIN;
    return ssize_t{-1};
  };
  options.calls.synchronize = [&](int file) {
    if (++synchronizations > 1) return ::fdatasync(file);
    errno = EINTR;
    return -1;
  };
  Writer writer(file_, captures::somePreamble(), std::move(options));
  for (std::uint8_t i = 0; i < 5; ++i) EXPECT_TRUE(writer.append(valueOf(i)));
  EXPECT_EQ(writer.close(), std::nullopt);
  EXPECT_EQ(recordsIn().size(), 5U);
}

TEST_F(WriterTest, APathThatCannotBeWrittenIsReported) {
  EXPECT_THAT(refusalOf(scratch_ / "no/such/directory"), HasSubstr("No such file or directory"));
  EXPECT_THAT(refusalOf(scratch_.path(), {.overwrite = true}), HasSubstr("Is a directory"));
  EXPECT_THAT(refusalOf("/dev/full", {.overwrite = true}), HasSubstr("not a regular file"));
  const auto pipe = scratch_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THAT(refusalOf(pipe, {.overwrite = true}), HasSubstr("not a regular file"));
}

TEST_F(WriterTest, TwoWritersNeverShareAFile) {
  Writer first(file_, captures::somePreamble());
  first.append(valueOf(1));
  EXPECT_THAT(refusalOf(file_, {.overwrite = true}), HasSubstr("another program is writing it"));
  first.append(valueOf(2));
  EXPECT_EQ(recordsIn().size(), 2U);
}

TEST_F(WriterTest, RemovesAFileWhoseHeaderCannotBeWritten) {
  WriterOptions options;
  options.calls.write = [](int, const void*, std::size_t) {
    errno = ENOSPC;
    return ssize_t{-1};
  };
  EXPECT_THAT(refusalOf(file_, std::move(options)), HasSubstr("No space left on device"));
  EXPECT_FALSE(std::filesystem::exists(file_));
}

// The disk accepts `room` more bytes, in pieces, and then fails.
FileCalls fillingUp(std::size_t room, int errorNumber) {
  FileCalls calls = FileCalls::system();
  calls.synchronize = [](int) { return 0; };
  calls.write = [room, errorNumber](int file, const void* bytes, std::size_t size) mutable {
    const std::size_t count = std::min({size, room, std::size_t{50}});
    room -= count;
    if (count > 0) return ::write(file, bytes, count);
    errno = errorNumber;
    return ssize_t{-1};
  };
  return calls;
}

TEST_F(WriterTest, OnAFullDiskTheFileEndsWithACompleteRecord) {
  for (const int errorNumber : {ENOSPC, EIO, EFBIG, EDQUOT}) {
    for (std::size_t room = 100; room < 700; room += 7) {
      std::filesystem::remove(file_);
      Writer writer(file_, captures::somePreamble(),
                    {.overwrite = true, .calls = fillingUp(room, errorNumber)});
      std::size_t written = 0;
      while (writer.append(valueOf(3))) ++written;
      EXPECT_THAT(writer.error().value_or(""), HasSubstr("cannot write " + file_.string() + ": "));
      EXPECT_THAT(*writer.error(), HasSubstr(std::generic_category().message(errorNumber)));
      // Nothing is appended later, even when the disk has space again.
      EXPECT_FALSE(writer.append(valueOf(4)));
      EXPECT_EQ(writer.close(), writer.error());
      EXPECT_EQ(writer.records(), written);
      EXPECT_EQ(recordsIn().size(), written) << "room " << room;
    }
  }
}

TEST_F(WriterTest, AnInterruptedOrShortWriteIsCompleted) {
  WriterOptions options;
  int calls = 0;
  options.calls.write = [&](int file, const void* bytes, std::size_t size) {
    if (++calls % 2 == 0) {
      errno = EINTR;
      return ssize_t{-1};
    }
    return ::write(file, bytes, (size + 1) / 2);
  };
  Writer writer(file_, captures::somePreamble(), std::move(options));
  for (std::uint8_t i = 0; i < 10; ++i) EXPECT_TRUE(writer.append(valueOf(i)));
  EXPECT_EQ(writer.close(), std::nullopt);
  EXPECT_EQ(recordsIn().size(), 10U);
}

TEST_F(WriterTest, AFileThatCannotBeTruncatedIsReported) {
  WriterOptions options{.calls = fillingUp(200, ENOSPC)};
  options.calls.truncate = [](int, off_t) {
    errno = EIO;
    return -1;
  };
  Writer writer(file_, captures::somePreamble(), std::move(options));
  while (writer.append(valueOf(3))) {
  }
  EXPECT_THAT(writer.error().value_or(""), HasSubstr("nor can it be cut back"));
}

TEST_F(WriterTest, ARecordThatIsTooLongIsAnErrorAndTheFileStaysWhole) {
  Writer writer(file_, captures::somePreamble());
  EXPECT_TRUE(writer.append(valueOf(1)));
  EXPECT_FALSE(writer.append({{}, Value{1, 1, std::vector<std::uint8_t>(2'000'000), {}}}));
  EXPECT_THAT(writer.error().value_or(""), HasSubstr("bytes, the longest is"));
  EXPECT_EQ(recordsIn().size(), 1U);
}

TEST_F(WriterTest, TheFileIsSynchronizedPeriodicallyAndByClose) {
  std::promise<void> synchronised;
  std::atomic<int> calls = 0;
  const auto here = std::this_thread::get_id();
  std::atomic<bool> elsewhere = true;
  WriterOptions options{.synchronizeEvery = std::chrono::milliseconds(1)};
  options.calls.synchronize = [&](int file) {
    if (std::this_thread::get_id() == here) elsewhere = false;
    if (++calls == 1) synchronised.set_value();
    return ::fdatasync(file);
  };
  Writer writer(file_, captures::somePreamble(), std::move(options));
  synchronised.get_future().wait();
  const int before = calls;
  writer.append(valueOf(1));
  writer.close();
  EXPECT_GT(calls, before);
  EXPECT_TRUE(elsewhere);
}

TEST_F(WriterTest, ASlowDiskDoesNotDelayAppend) {
  std::promise<void> release;
  std::promise<void> begun;
  std::atomic<int> calls = 0;
  const auto released = release.get_future().share();
  WriterOptions options{.synchronizeEvery = std::chrono::milliseconds(1)};
  options.calls.synchronize = [&, released](int) {
    if (++calls == 1) begun.set_value();
    released.wait();
    return 0;
  };
  Writer writer(file_, captures::somePreamble(), std::move(options));
  begun.get_future().wait();
  // The thread is inside the system's call and stays there.
  for (std::uint8_t i = 0; i < 100; ++i) EXPECT_TRUE(writer.append(valueOf(i)));
  EXPECT_EQ(recordsIn().size(), 100U);
  release.set_value();
}

TEST_F(WriterTest, AFailureToSynchronizeEndsTheRecording) {
  std::promise<void> failed;
  std::atomic<int> calls = 0;
  WriterOptions options{.synchronizeEvery = std::chrono::milliseconds(1)};
  options.calls.synchronize = [&](int) {
    if (++calls == 1) failed.set_value();
    errno = EIO;
    return -1;
  };
  Writer writer(file_, captures::somePreamble(), std::move(options));
  failed.get_future().wait();
  while (!writer.error()) std::this_thread::yield();
  EXPECT_FALSE(writer.append(valueOf(1)));
  EXPECT_THAT(writer.close().value_or(""), HasSubstr("Input/output error"));
}

// In a separate process: the limit holds for a whole process.
TEST_F(WriterTest, AFileAtItsSizeLimitEndsWithAWholeRecord) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    constexpr rlim_t most = 1000;
    const rlimit limit{most, most};
    if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || ::setrlimit(RLIMIT_FSIZE, &limit) != 0) {
      ::_exit(2);
    }
    Writer writer(file_, captures::somePreamble());
    while (writer.append(valueOf(9))) {
    }
    const bool named = writer.error().value_or("").find("File too large") != std::string::npos;
    ::_exit(named && writer.close().has_value() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_GT(recordsIn().size(), 5U);
  EXPECT_LE(std::filesystem::file_size(file_), 1000U);
}

}  // namespace
}  // namespace Zephly::capture
