// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/link.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using namespace Zephly::att_strap;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr std::uint16_t handle = 0x0042;

class LinkTest : public testing::Test {
 protected:
  Link link{handle,
            {.packetSize = 8, .packets = 2},
            {[this](std::uint16_t flags, BytesView part) {
               transmitted.emplace_back(flags, Bytes(part.begin(), part.end()));
             },
             [this](std::uint16_t channel, BytesView message) {
               messages.emplace_back(channel, Bytes(message.begin(), message.end()));
             }}};
  std::vector<std::pair<std::uint16_t, Bytes>> transmitted;
  std::vector<std::pair<std::uint16_t, Bytes>> messages;
};

TEST_F(LinkTest, PrependsLengthAndChannel) {
  EXPECT_TRUE(link.send(4, Bytes{1, 2, 3}));
  EXPECT_THAT(transmitted, ElementsAre(Pair(0x0042, Bytes{3, 0, 4, 0, 1, 2, 3})));
}

TEST_F(LinkTest, SplitsMessagesLongerThanAPacket) {
  int sent = 0;
  link.send(4, Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}, [&] { ++sent; });
  EXPECT_THAT(transmitted, ElementsAre(Pair(0x0042, Bytes{13, 0, 4, 0, 1, 2, 3, 4}),
                                       Pair(0x1042, Bytes{5, 6, 7, 8, 9, 10, 11, 12})));
  EXPECT_EQ(sent, 0);
  link.packetsCompleted(1);
  EXPECT_THAT(transmitted.back(), Pair(0x1042, Bytes{13}));
  EXPECT_EQ(sent, 1);
}

TEST_F(LinkTest, SendsNoMorePacketsThanTheControllerHasBuffersFor) {
  for (std::uint8_t i = 0; i < 5; ++i) link.send(4, Bytes{i});
  EXPECT_EQ(transmitted.size(), 2U);
  EXPECT_EQ(link.waiting(), 3U);
  link.packetsCompleted(2);
  EXPECT_EQ(transmitted.size(), 4U);
  // A controller that reports more packets than were sent is wrong: its buffers do not grow.
  link.packetsCompleted(100);
  for (std::uint8_t i = 0; i < 5; ++i) link.send(4, Bytes{i});
  EXPECT_EQ(transmitted.size(), 6U);
}

TEST_F(LinkTest, RefusesMessagesWhenItsQueueIsFull) {
  for (std::size_t i = 0; i < Link::longestQueue + 2; ++i) EXPECT_TRUE(link.send(4, Bytes{1}));
  EXPECT_FALSE(link.send(4, Bytes{1}));
  link.packetsCompleted(1);
  EXPECT_TRUE(link.send(4, Bytes{1}));
}

TEST_F(LinkTest, JoinsFragments) {
  link.received(0x2042, Bytes{5, 0, 4, 0, 1});
  link.received(0x1042, Bytes{2, 3});
  EXPECT_THAT(messages, IsEmpty());
  link.received(0x1042, Bytes{4, 5});
  EXPECT_THAT(messages, ElementsAre(Pair(4, Bytes{1, 2, 3, 4, 5})));
}

TEST_F(LinkTest, StartsANewMessageAtAFirstFragment) {
  link.received(0x2042, Bytes{5, 0, 4, 0, 1});
  link.received(0x2042, Bytes{1, 0, 6, 0, 9});
  EXPECT_THAT(messages, ElementsAre(Pair(6, Bytes{9})));
}

TEST_F(LinkTest, IgnoresOtherLinksAndIncompleteHeaders) {
  link.received(0x2043, Bytes{1, 0, 4, 0, 1});
  link.received(0x2042, Bytes{1, 0, 4});
  link.received(0x2042, Bytes{});
  EXPECT_THAT(messages, IsEmpty());
}

TEST_F(LinkTest, DoesNothingOnceMute) {
  for (std::uint8_t i = 0; i < 5; ++i) link.send(4, Bytes{i});
  link.mute();
  link.packetsCompleted(2);
  link.received(0x2042, Bytes{1, 0, 4, 0, 1});
  EXPECT_FALSE(link.send(4, Bytes{1}));
  EXPECT_EQ(transmitted.size(), 2U);
  EXPECT_THAT(messages, IsEmpty());
}

}  // namespace
