// SPDX-License-Identifier: MIT
#include <tools/watch/replay_source.h>

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <hosts/main_queue/main_queue.h>
#include <tests/support/captures.h>
#include <tests/support/sessions.h>
#include <zephly/protocol/strap_time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;
using capture::CaptureError;
using capture::Record;
using captures::Bytes;
using captures::ScratchDirectory;
using sessions::LiveWorld;
using sessions::ReceivedSession;
using sessions::Replayed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

struct Session {
  std::vector<Record> records;
  ReceivedSession received;
};

Session session(StrapTime duration) {
  LiveWorld world;
  world.scheduler.advance(duration);
  std::vector<Record> records = world.end();
  return {std::move(records), world.received()};
}

std::string atByte(const std::filesystem::path& file, std::uint64_t offset) {
  return file.string() + ": at byte " + std::to_string(offset) + ": ";
}

// Whether `part` is a prefix of `whole`.
testing::AssertionResult beginsWith(const ReceivedSession& whole, const ReceivedSession& part) {
  ReceivedSession beginning = whole;
  if (part.events.size() > whole.events.size() || part.lines.size() > whole.lines.size()) {
    return testing::AssertionFailure() << "more events than expected";
  }
  beginning.events.resize(part.events.size());
  beginning.lines.resize(part.lines.size());
  return sessions::sameSession(beginning, part);
}

TEST(ReplaySourceTest, DescribesTheCaptureAndItsSpeed) {
  const ScratchDirectory scratch;
  main_queue::MainQueue queue;
  const auto nothing = [] {};
  const auto file = scratch.file("wa\x1Blk.zcap", captures::captureOf({}));
  const ReplaySource source(queue, {.file = file}, nothing);
  EXPECT_EQ(source.title(), "wa?lk.zcap: " + captures::somePreamble().source);
  EXPECT_EQ(source.pace(), "");
  EXPECT_EQ(source.now(), 0s);
}

TEST(ReplaySourceTest, PlaysAtTheGivenSpeed) {
  const ScratchDirectory scratch;
  main_queue::MainQueue queue;
  const auto nothing = [] {};
  const auto file = scratch.file("walk.zcap", captures::captureOf({}));
  EXPECT_EQ(ReplaySource(queue, {.file = file, .speed = 2.5}, nothing).pace(), "speed 2.5");
  EXPECT_EQ(ReplaySource(queue, {.file = file, .speed = std::nullopt}, nothing).pace(),
            "as fast as it goes");
}

TEST(ReplaySourceTest, ItsTimeIsTheRecordedTime) {
  const ScratchDirectory scratch;
  std::vector<Record> records = session(1s).records;
  records.back().stamp.monotonic = 1700ms;  // the orderly end came later
  const Replayed again = sessions::replay(scratch.file("a.zcap", captures::captureOf(records)));
  EXPECT_EQ(again.report.duration, 1700ms);
  EXPECT_FALSE(again.report.strap);
}

TEST(ReplaySourceTest, EndsAtAnEarlierDuration) {
  const ScratchDirectory scratch;
  const Session whole = session(3s);
  const auto file = scratch.file("a.zcap", captures::captureOf(whole.records));
  for (const std::optional<double> speed : {std::optional<double>(500), std::optional<double>()}) {
    const Replayed part = sessions::replay(file, speed, 1s);
    EXPECT_EQ(part.report.duration, 1s);
    EXPECT_THAT(part.report.complaints, IsEmpty());
    EXPECT_TRUE(beginsWith(whole.received, part.received));
    EXPECT_GT(part.received.events.size(), 300U);
    EXPECT_LT(part.received.events.size(), whole.received.events.size() / 2);
  }
}

// At this speed nothing but the moment itself is due in the time of a test.
TEST(ReplaySourceTest, BeginsAtAMomentInTheStateOfThatMoment) {
  const ScratchDirectory scratch;
  const Session whole = session(40s);  // loses its link at 30 s
  const auto file = scratch.file("a.zcap", captures::captureOf(whole.records));
  main_queue::MainQueue queue;
  ReplaySource source(queue, {.file = file, .speed = 1e-6, .from = 35s}, [&] { queue.stop(); });
  sessions::Listener listener([&] { return source.now(); });
  source.start();
  EXPECT_EQ(source.pace(), "as fast as it goes");
  while (source.now() < 35s) queue.poll();
  const auto end = std::chrono::steady_clock::now() + 100ms;
  while (std::chrono::steady_clock::now() < end) queue.poll();
  EXPECT_GE(source.now(), 35s);
  EXPECT_LT(source.now(), 35s + 1ms);
  EXPECT_NE(source.pace(), "as fast as it goes");
  const ReceivedSession received = listener.received();
  EXPECT_EQ(received.count(watch::Event{{}, watch::Connected{}}.what.index()), 2U);
  EXPECT_TRUE(beginsWith(whole.received, received));
  EXPECT_THAT(source.finish().complaints, IsEmpty());
}

TEST(ReplaySourceTest, TheDurationCountsFromTheMoment) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", captures::captureOf(session(5s).records));
  main_queue::MainQueue queue;
  ReplaySource source(queue, {.file = file, .speed = 1000, .from = 2s, .duration = 1s},
                      [&] { queue.stop(); });
  const sessions::Listener listener([&] { return source.now(); });
  source.start();
  queue.run();
  const SourceReport report = source.finish();
  EXPECT_EQ(report.duration, 3s);
  EXPECT_THAT(report.complaints, IsEmpty());
}

TEST(ReplaySourceTest, ComplainsWhenTheCaptureEndsBeforeTheMoment) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", captures::captureOf(session(2s).records));
  main_queue::MainQueue queue;
  ReplaySource source(queue, {.file = file, .from = 100s}, [&] { queue.stop(); });
  const sessions::Listener listener([&] { return source.now(); });
  source.start();
  queue.run();
  EXPECT_THAT(source.finish().complaints, ElementsAre(file.string() + ": it ends before 1:40"));
}

TEST(ReplaySourceTest, EndsOnceAndOnTheQueue) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", captures::captureOf({{{}, capture::Ended{}}}));
  main_queue::MainQueue queue;
  int ended = 0;
  ReplaySource source(queue, {.file = file, .duration = 0s}, [&] {
    ++ended;
    queue.stop();
  });
  source.start();
  EXPECT_EQ(ended, 0);
  queue.run();
  for (int turn = 0; turn < 100; ++turn) queue.poll();
  EXPECT_EQ(ended, 1);
}

TEST(ReplaySourceTest, ReportsItsPositionWhenFinishedEarly) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", captures::captureOf(session(3s).records));
  main_queue::MainQueue queue;
  ReplaySource source(queue, {.file = file, .speed = 1e-3}, [&] { queue.stop(); });
  const sessions::Listener listener([&] { return source.now(); });
  source.start();
  while (queue.poll() == 0) {
  }
  const SourceReport report = source.finish();
  EXPECT_LT(report.duration, 3s);
  EXPECT_THAT(report.complaints, IsEmpty());
  EXPECT_EQ(source.now(), report.duration);
}

TEST(ReplaySourceTest, SharesTheQueueAtMaximumSpeed) {
  const ScratchDirectory scratch;
  // More records than the pacer plays in one turn.
  const std::vector<Record> records(30'000, {{}, capture::StateChanged{CBManagerState::poweredOn}});
  const auto file = scratch.file("a.zcap", captures::captureOf(records));
  main_queue::MainQueue queue;
  bool over = false;
  ReplaySource source(queue, {.file = file, .speed = std::nullopt}, [&] {
    over = true;
    queue.stop();
  });
  bool overWhenPosted = true;
  source.start();
  const main_queue::Timer timer =
      queue.after(0s, [&] { queue.post([&] { overWhenPosted = over; }); });
  queue.run();
  EXPECT_TRUE(over);
  EXPECT_FALSE(overWhenPosted);
}

TEST(ReplaySourceTest, ReadsTheFileDuringPlayback) {
  const ScratchDirectory scratch;
  const std::vector<Record> records(30'000, {{}, capture::StateChanged{CBManagerState::poweredOn}});
  const auto file = scratch.file("a.zcap", captures::captureOf(records));
  const auto size = std::filesystem::file_size(file);
  ASSERT_GT(size, 600'000U);
  main_queue::MainQueue queue;
  ReplaySource source(queue, {.file = file, .speed = std::nullopt}, [&] { queue.stop(); });
  std::filesystem::resize_file(file, size / 2);
  source.start();
  queue.run();
  EXPECT_THAT(source.finish().complaints, testing::Contains(StartsWith(file.string())));
}

TEST(ReplaySourceTest, PlaysACaptureWithoutItsEndAndReportsIt) {
  const ScratchDirectory scratch;
  Session whole = session(1s);
  whole.records.pop_back();
  const Bytes bytes = captures::captureOf(whole.records);
  const auto file = scratch.file("a.zcap", bytes);
  const Replayed again = sessions::replay(file);
  EXPECT_TRUE(sessions::sameSession(whole.received, again.received));
  EXPECT_THAT(again.report.complaints,
              ElementsAre(atByte(file, bytes.size()) + "the capture stops here without its end"));
}

TEST(ReplaySourceTest, EndsImmediatelyWithoutRecords) {
  const ScratchDirectory scratch;
  const Replayed nothing = sessions::replay(scratch.file("a.zcap", captures::captureOf({})));
  EXPECT_THAT(nothing.received.events, IsEmpty());
  EXPECT_THAT(nothing.report.complaints, ElementsAre(HasSubstr("without its end")));
}

TEST(ReplaySourceTest, PlaysATruncatedCaptureToItsEnd) {
  const ScratchDirectory scratch;
  const Session whole = session(150ms);
  const Bytes bytes = captures::captureOf(whole.records);
  const std::vector<std::size_t> beginnings = captures::beginningsOf(whole.records);
  ASSERT_GT(whole.received.events.size(), 20U);
  std::size_t most = 0;
  for (std::size_t length = beginnings.front(); length < bytes.size(); length += 5) {
    const auto file = scratch.file(
        "a.zcap", Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)));
    const Replayed part = sessions::replay(file);
    ASSERT_TRUE(beginsWith(whole.received, part.received)) << length;
    ASSERT_GE(part.received.events.size(), most) << length;
    most = part.received.events.size();
    ASSERT_THAT(part.report.complaints, ElementsAre(StartsWith(file.string() + ": at byte ")));
  }
  EXPECT_EQ(most, whole.received.events.size());
}

TEST(ReplaySourceTest, ReportsAnyFlippedBit) {
  const ScratchDirectory scratch;
  const Session whole = session(150ms);
  const Bytes bytes = captures::captureOf(whole.records);
  const std::size_t head = captures::beginningsOf(whole.records).front();
  std::mt19937_64 random(4);
  for (int run = 0; run < 500; ++run) {
    Bytes flipped = bytes;
    const std::size_t position = random() % bytes.size();
    flipped[position] = static_cast<std::uint8_t>(flipped[position] ^ (1U << random() % 8));
    const auto file = scratch.file("a.zcap", flipped);
    if (position < head) {
      EXPECT_THROW(sessions::replay(file), CaptureError) << position;
      continue;
    }
    const Replayed part = sessions::replay(file);
    ASSERT_TRUE(beginsWith(whole.received, part.received)) << position;
    ASSERT_THAT(part.report.complaints, ElementsAre(StartsWith(file.string() + ": at byte ")));
  }
}

TEST(ReplaySourceTest, AContradictionEndsItWithItsOffset) {
  const ScratchDirectory scratch;
  std::vector<Record> records = session(1s).records;
  const std::size_t last = records.size() - 1;
  records.insert(records.end() - 1,
                 {records[last].stamp, capture::Value{1, 99, std::vector<std::uint8_t>{1}}});
  const auto file = scratch.file("a.zcap", captures::captureOf(records));
  EXPECT_THAT(sessions::replay(file).report.complaints,
              ElementsAre(atByte(file, captures::beginningsOf(records).at(last)) +
                          "characteristic 99 does not belong to peripheral 1"));
}

TEST(ReplaySourceTest, InvalidTimesEndItWithTheirOffset) {
  const ScratchDirectory scratch;
  const auto complaintsOf = [&](const std::vector<std::chrono::nanoseconds>& times) {
    std::vector<Record> records;
    records.reserve(times.size());
    for (const auto time : times) {
      records.push_back({{.monotonic = time}, capture::StateChanged{CBManagerState::poweredOn}});
    }
    const auto file = scratch.file("a.zcap", captures::captureOf(records));
    const std::string place = atByte(file, captures::beginningsOf(records).at(times.size() - 1));
    std::string line = sessions::replay(file).report.complaints.at(0);
    EXPECT_THAT(line, StartsWith(place));
    return line.substr(std::min(place.size(), line.size()));
  };
  EXPECT_EQ(complaintsOf({-1ns}), "time runs backwards");
  EXPECT_EQ(complaintsOf({std::chrono::nanoseconds::min()}), "time runs backwards");
  EXPECT_EQ(complaintsOf({5s, 5s, 5s - 1ns}), "time runs backwards");
  EXPECT_EQ(complaintsOf({1'000'000'001s}), "a time beyond the longest session");
  EXPECT_EQ(complaintsOf({0s, std::chrono::nanoseconds::max()}),
            "a time beyond the longest session");
}

TEST(ReplaySourceTest, ReportsMissingRequestsInOneLine) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("a.zcap", captures::captureOf(session(1s).records));
  main_queue::MainQueue queue;
  ReplaySource source(queue, {.file = file, .speed = std::nullopt}, [&] { queue.stop(); });
  source.start();  // and no session
  queue.run();
  EXPECT_THAT(source.finish().complaints,
              ElementsAre(testing::MatchesRegex(
                  ".*a\\.zcap: [0-9]+ records that the session did not request; the first at "
                  "0:00: a report of a central that was not created")));
}

TEST(ReplaySourceTest, RefusesAFileThatIsNotACapture) {
  const ScratchDirectory scratch;
  main_queue::MainQueue queue;
  for (const auto& file :
       {scratch.path(), scratch / "missing.zcap", scratch.file("empty.zcap", {}),
        scratch.file("text.zcap", {'h', 'e', 'l', 'l', 'o'}), std::filesystem::path("/dev/null")}) {
    EXPECT_THROW(ReplaySource(queue, {.file = file}, [] {}), CaptureError) << file;
  }
}

}  // namespace
}  // namespace Zephly::watch
