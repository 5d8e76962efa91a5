// SPDX-License-Identifier: MIT
#include <tools/view/viewer_queue.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace Zephly::view {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

// A message of `size` bytes that starts with an identifying letter.
Message message(Message::Kind kind, char letter, std::size_t size = 10) {
  return textMessage(kind, letter + std::string(size - 1, '.'));
}

Message samples(char letter, Trace trace, std::uint32_t count, std::size_t size = 10) {
  Message result = message(Message::Kind::samples, letter, size);
  result.trace = trace;
  result.samples = count;
  return result;
}

Message other(char letter) { return message(Message::Kind::other, letter); }
Message state(char letter, std::size_t size = 10) {
  return message(Message::Kind::state, letter, size);
}

// All messages of the queue: letters, and losses unchanged.
std::vector<std::string> drained(ViewerQueue& queue) {
  std::vector<std::string> all;
  while (const auto next = queue.next()) {
    const std::string& text = *next->bytes;
    all.push_back(text.front() == '{' ? text : text.substr(0, 1));
  }
  return all;
}

TEST(ViewerQueueTest, KeepsTheOrderOfMessages) {
  ViewerQueue queue;
  queue.push(other('a'));
  queue.push(samples('b', Trace::ecg, 1));
  queue.push(state('c'));
  queue.push(other('d'));
  queue.push(samples('e', Trace::motion, 1));
  EXPECT_EQ(queue.bytes(), 50U);
  EXPECT_THAT(drained(queue), ElementsAre("a", "b", "c", "d", "e"));
  EXPECT_EQ(queue.bytes(), 0U);
  EXPECT_EQ(queue.dropped(), 0U);
}

TEST(ViewerQueueTest, KeepsOnlyTheLatestState) {
  ViewerQueue queue;
  queue.push(state('a', 100));
  queue.push(other('b'));
  queue.push(state('c', 20));
  EXPECT_EQ(queue.bytes(), 30U);
  EXPECT_THAT(drained(queue), ElementsAre("b", "c"));
  EXPECT_EQ(queue.bytes(), 0U);
}

TEST(ViewerQueueTest, HoldsExactlyItsLimit) {
  ViewerQueue queue(30);
  for (const char letter : {'a', 'b', 'c'}) queue.push(samples(letter, Trace::ecg, 1));
  EXPECT_THAT(drained(queue), ElementsAre("a", "b", "c"));
}

TEST(ViewerQueueTest, DropsAndCountsTheOldestSamplesBeyondTheLimit) {
  ViewerQueue queue(30);
  queue.push(other('o'));
  queue.push(samples('a', Trace::ecg, 5));
  queue.push(samples('b', Trace::motion, 7));
  queue.push(samples('c', Trace::ecg, 11));
  queue.push(samples('d', Trace::ecg, 13));
  EXPECT_LE(queue.bytes(), 30U);
  EXPECT_EQ(queue.dropped(), 2U);
  const auto all = drained(queue);
  ASSERT_THAT(all, ElementsAre(testing::_, "o", "c", "d"));
  const json lost = json::parse(all.front());
  EXPECT_EQ(lost.at("messages"), 2);
  EXPECT_EQ(lost.at("samples"),
            json::parse(R"({"ecg":5,"filteredEcg":0,"respiration":0,"motion":7})"));
}

TEST(ViewerQueueTest, ReportsALossOnce) {
  ViewerQueue queue(20);
  for (const char letter : {'a', 'b', 'c'}) queue.push(samples(letter, Trace::ecg, 1));
  drained(queue);
  queue.push(samples('d', Trace::ecg, 1));
  EXPECT_THAT(drained(queue), ElementsAre("d"));
  for (const char letter : {'e', 'f', 'g', 'h'}) queue.push(samples(letter, Trace::ecg, 1));
  const auto all = drained(queue);
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(json::parse(all.front()).at("messages"), 2);
  EXPECT_EQ(queue.dropped(), 3U);
}

TEST(ViewerQueueTest, DropsTheOldestOtherMessagesWithoutSamples) {
  ViewerQueue queue(30);
  for (const char letter : {'a', 'b', 'c', 'd'}) queue.push(other(letter));
  queue.push(state('s'));
  const auto all = drained(queue);
  ASSERT_THAT(all, ElementsAre(testing::_, "c", "d", "s"));
  EXPECT_EQ(json::parse(all.front()).at("messages"), 2);
  EXPECT_EQ(json::parse(all.front()).at("samples").at("ecg"), 0);
}

TEST(ViewerQueueTest, KeepsAStateLargerThanTheLimit) {
  ViewerQueue queue(5);
  queue.push(state('s'));
  EXPECT_THAT(drained(queue), ElementsAre("s"));
}

TEST(ViewerQueueTest, StaysSmallForAnyInput) {
  ViewerQueue queue(1000);
  for (int i = 0; i < 100'000; ++i) {
    queue.push(samples('a', Trace::ecg, 1, 100));
    if (i % 10 == 0) queue.push(state('s', 300));
    if (i % 100 == 0) queue.push(other('o'));
    ASSERT_LE(queue.bytes(), 1000U);
  }
  EXPECT_THAT(drained(queue), testing::Not(IsEmpty()));
}

}  // namespace
}  // namespace Zephly::view
