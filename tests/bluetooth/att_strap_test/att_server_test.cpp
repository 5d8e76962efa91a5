// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/att_server.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace {

using namespace Zephly::att_strap;
using testing::ElementsAre;

constexpr std::uint16_t longUuidService = 0x10;

// 1: service 180A, 2-3: readable; 4: service with a long identifier, 5-7: notifying, 8-9: readable.
AttributeTable smallTable() {
  AttributeTable table;
  table.addService(Uuid(0x180A));
  table.addCharacteristic(Uuid(0x2A29), property::read, {'a', 'b', 'c'});
  table.addService(Uuid(CBUUID::UUIDWithString("40366E80-CF3A-11E1-9AB4-0002A5D5C51B")));
  table.addCharacteristic(Uuid(CBUUID::UUIDWithString("46366E80-CF3A-11E1-9AB4-0002A5D5C51B")),
                          property::notify);
  table.addCharacteristic(Uuid(0x2A24), property::read, Bytes(50, 7));
  return table;
}

constexpr AttributeHandle notifying = 6;

Bytes error(std::uint8_t request, std::uint8_t handle, std::uint8_t code) {
  return {0x01, request, handle, 0, code};
}

class AttServerTest : public testing::Test {
 protected:
  std::optional<Bytes> ask(const Bytes& pdu) {
    // In a block of exactly its size, so that a sanitizer detects a read beyond the end.
    const auto exact = std::make_unique<std::uint8_t[]>(pdu.size());
    std::copy(pdu.begin(), pdu.end(), exact.get());
    return server.answer(BytesView(exact.get(), pdu.size()));
  }

  AttServer server{smallTable(), 100};
};

TEST_F(AttServerTest, HasTheDefaultMtuUntilTheClientAsks) {
  EXPECT_EQ(server.mtu(), 23);
  EXPECT_EQ(server.longestNotification(), 20U);
}

TEST_F(AttServerTest, TakesTheSmallerOfBothMtus) {
  EXPECT_EQ(ask({0x02, 64, 0}), (Bytes{0x03, 100, 0}));
  EXPECT_EQ(server.mtu(), 64);
  EXPECT_EQ(ask({0x02, 0x05, 0x02}), (Bytes{0x03, 100, 0}));
  EXPECT_EQ(server.mtu(), 100);
}

TEST_F(AttServerTest, KeepsTheDefaultMtuWhenTheClientOffersLess) {
  ask({0x02, 5, 0});
  EXPECT_EQ(server.mtu(), 23);
}

TEST_F(AttServerTest, ListsServicesOfOneLengthInOneAnswer) {
  EXPECT_EQ(ask({0x10, 1, 0, 0xFF, 0xFF, 0x00, 0x28}), (Bytes{0x11, 6, 1, 0, 3, 0, 0x0A, 0x18}));
  EXPECT_EQ(ask({0x10, 4, 0, 0xFF, 0xFF, 0x00, 0x28}),
            (Bytes{0x11, 20,   4,    0,    9,    0,    0x1B, 0xC5, 0xD5, 0xA5, 0x02,
                   0x00, 0xB4, 0x9A, 0xE1, 0x11, 0x3A, 0xCF, 0x80, 0x6E, 0x36, 0x40}));
}

TEST_F(AttServerTest, ReportsTheEndOfTheServices) {
  EXPECT_EQ(ask({0x10, longUuidService, 0, 0xFF, 0xFF, 0x00, 0x28}),
            error(0x10, longUuidService, 0x0A));
}

TEST_F(AttServerTest, HasNoSecondaryServices) {
  EXPECT_EQ(ask({0x10, 1, 0, 0xFF, 0xFF, 0x01, 0x28}), error(0x10, 1, 0x0A));
}

TEST_F(AttServerTest, RefusesATypeThatIsNotAGroup) {
  EXPECT_EQ(ask({0x10, 1, 0, 0xFF, 0xFF, 0x03, 0x28}), error(0x10, 1, 0x10));
}

TEST_F(AttServerTest, FindsAServiceByItsIdentifier) {
  EXPECT_EQ(ask({0x06, 1, 0, 0xFF, 0xFF, 0x00, 0x28, 0x0A, 0x18}), (Bytes{0x07, 1, 0, 3, 0}));
  EXPECT_EQ(ask({0x06, 1, 0, 0xFF, 0xFF, 0x00, 0x28, 0x0B, 0x18}), error(0x06, 1, 0x0A));
  EXPECT_EQ(ask({0x06, 1, 0, 0xFF, 0xFF, 0x00, 0x28, 0x0A}), error(0x06, 1, 0x0A));
}

TEST_F(AttServerTest, ListsCharacteristicsOfOneLengthInOneAnswer) {
  EXPECT_EQ(ask({0x08, 1, 0, 0xFF, 0xFF, 0x03, 0x28}),
            (Bytes{0x09, 7, 2, 0, 0x02, 3, 0, 0x29, 0x2A}));
  EXPECT_EQ(ask({0x08, 4, 0, 7, 0, 0x03, 0x28}),
            (Bytes{0x09, 21,   5,    0,    0x10, 6,    0,    0x1B, 0xC5, 0xD5, 0xA5, 0x02,
                   0x00, 0xB4, 0x9A, 0xE1, 0x11, 0x3A, 0xCF, 0x80, 0x6E, 0x36, 0x46}));
}

TEST_F(AttServerTest, ReadsByTypeInShortAndInLongForm) {
  const Bytes expected = {0x09, 5, 3, 0, 'a', 'b', 'c'};
  EXPECT_EQ(ask({0x08, 1, 0, 0xFF, 0xFF, 0x29, 0x2A}), expected);
  EXPECT_EQ(ask({0x08, 1,    0,    0xFF, 0xFF, 0xFB, 0x34, 0x9B, 0x5F, 0x80, 0x00,
                 0x00, 0x80, 0x00, 0x10, 0x00, 0x00, 0x29, 0x2A, 0x00, 0x00}),
            expected);
}

TEST_F(AttServerTest, CutsALongValueThatIsReadByType) {
  const auto answer = ask({0x08, 1, 0, 0xFF, 0xFF, 0x24, 0x2A});
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->size(), 23U);
  EXPECT_EQ((*answer)[1], 21);
}

TEST_F(AttServerTest, RefusesToReadAnUnreadableValueByType) {
  EXPECT_EQ(ask({0x08, 1,    0,    0xFF, 0xFF, 0x1B, 0xC5, 0xD5, 0xA5, 0x02, 0x00,
                 0xB4, 0x9A, 0xE1, 0x11, 0x3A, 0xCF, 0x80, 0x6E, 0x36, 0x46}),
            error(0x08, notifying, 0x02));
}

TEST_F(AttServerTest, RefusesATypeOfInvalidLength) {
  EXPECT_EQ(ask({0x08, 1, 0, 0xFF, 0xFF, 0x03, 0x28, 0x00}), error(0x08, 0, 0x04));
}

TEST_F(AttServerTest, ListsTheTypesOfAttributes) {
  EXPECT_EQ(ask({0x04, 7, 0, 7, 0}), (Bytes{0x05, 1, 7, 0, 0x02, 0x29}));
  // A long identifier ends a list of short ones, and is listed separately.
  EXPECT_EQ(ask({0x04, 5, 0, 9, 0}), (Bytes{0x05, 1, 5, 0, 0x03, 0x28}));
  EXPECT_EQ(ask({0x04, 6, 0, 9, 0}),
            (Bytes{0x05, 2,    6,    0,    0x1B, 0xC5, 0xD5, 0xA5, 0x02, 0x00,
                   0xB4, 0x9A, 0xE1, 0x11, 0x3A, 0xCF, 0x80, 0x6E, 0x36, 0x46}));
  EXPECT_EQ(ask({0x04, 10, 0, 0xFF, 0xFF}), error(0x04, 10, 0x0A));
}

TEST_F(AttServerTest, RefusesInvalidRanges) {
  for (const std::uint8_t request : Bytes{0x04, 0x06, 0x08, 0x10}) {
    EXPECT_EQ(ask({request, 0, 0, 0xFF, 0xFF, 0x00, 0x28}), error(request, 0, 0x01));
    EXPECT_EQ(ask({request, 5, 0, 4, 0, 0x00, 0x28}), error(request, 5, 0x01));
  }
}

TEST_F(AttServerTest, ReadsAValueInPieces) {
  EXPECT_EQ(ask({0x0A, 3, 0}), (Bytes{0x0B, 'a', 'b', 'c'}));
  EXPECT_EQ(ask({0x0A, 9, 0})->size(), 23U);
  EXPECT_EQ(ask({0x0C, 9, 0, 44, 0}), (Bytes{0x0D, 7, 7, 7, 7, 7, 7}));
  EXPECT_EQ(ask({0x0C, 9, 0, 50, 0}), (Bytes{0x0D}));
  EXPECT_EQ(ask({0x0C, 9, 0, 51, 0}), error(0x0C, 9, 0x07));
}

TEST_F(AttServerTest, RefusesToReadMissingAndUnreadableAttributes) {
  EXPECT_EQ(ask({0x0A, 10, 0}), error(0x0A, 10, 0x01));
  EXPECT_EQ(ask({0x0A, 0, 0}), error(0x0A, 0, 0x01));
  EXPECT_EQ(ask({0x0A, notifying, 0}), error(0x0A, notifying, 0x02));
}

TEST_F(AttServerTest, ReportsASubscriptionBeforeAnsweringIt) {
  std::vector<std::pair<AttributeHandle, bool>> reported;
  server.onSubscription([&](AttributeHandle value, bool on) { reported.emplace_back(value, on); });
  EXPECT_FALSE(server.isSubscribed(notifying));
  EXPECT_EQ(ask({0x12, 7, 0, 1, 0}), (Bytes{0x13}));
  EXPECT_TRUE(server.isSubscribed(notifying));
  EXPECT_EQ(ask({0x12, 7, 0, 1, 0}), (Bytes{0x13}));
  EXPECT_EQ(ask({0x0A, 7, 0}), (Bytes{0x0B, 1, 0}));
  EXPECT_EQ(ask({0x12, 7, 0, 0, 0}), (Bytes{0x13}));
  EXPECT_FALSE(server.isSubscribed(notifying));
  EXPECT_THAT(reported, ElementsAre(std::pair(notifying, true), std::pair(notifying, false)));
}

TEST_F(AttServerTest, ResetsWhenTheClientDisconnects) {
  ask({0x12, 7, 0, 1, 0});
  ask({0x02, 64, 0});
  server.clientGone();
  EXPECT_FALSE(server.isSubscribed(notifying));
  EXPECT_EQ(server.mtu(), 23);
}

TEST_F(AttServerTest, RefusesASubscriptionOnCommand) {
  server.refuseSubscription(notifying, 0x0E);
  EXPECT_EQ(ask({0x12, 7, 0, 1, 0}), error(0x12, 7, 0x0E));
  EXPECT_FALSE(server.isSubscribed(notifying));
  server.refuseNothing();
  EXPECT_EQ(ask({0x12, 7, 0, 1, 0}), (Bytes{0x13}));
}

TEST_F(AttServerTest, RefusesOtherWrites) {
  EXPECT_EQ(ask({0x12, 3, 0, 1, 0}), error(0x12, 3, 0x03));
  EXPECT_EQ(ask({0x12, 20, 0, 1, 0}), error(0x12, 20, 0x01));
  EXPECT_EQ(ask({0x12, 7, 0, 1}), error(0x12, 7, 0x0D));
  EXPECT_EQ(ask({0x12, 7, 0, 1, 0, 0}), error(0x12, 7, 0x0D));
}

TEST_F(AttServerTest, RefusesOtherRequestsAndIgnoresCommands) {
  EXPECT_EQ(ask({0x0E, 1, 0, 2, 0}), error(0x0E, 0, 0x06));
  EXPECT_EQ(ask({0x52, 7, 0, 1, 0}), std::nullopt);
  EXPECT_EQ(ask({0x1E}), std::nullopt);
  EXPECT_EQ(ask({}), std::nullopt);
}

TEST_F(AttServerTest, AnswersTruncatedRequestsWithAnError) {
  const std::vector<Bytes> whole = {
      {0x02, 64, 0}, {0x04, 1, 0, 9, 0}, {0x06, 1, 0, 9, 0, 0, 0x28}, {0x08, 1, 0, 9, 0, 3, 0x28},
      {0x0A, 3, 0},  {0x0C, 3, 0, 0, 0}, {0x10, 1, 0, 9, 0, 0, 0x28}, {0x12, 7, 0}};
  for (const Bytes& request : whole) {
    for (std::size_t length = 1; length < request.size(); ++length) {
      const auto end = request.begin() + static_cast<std::ptrdiff_t>(length);
      EXPECT_EQ(ask(Bytes(request.begin(), end)), error(request[0], 0, 0x04));
    }
  }
}

TEST_F(AttServerTest, AnswersAnyBytesWithinTheMtu) {
  std::mt19937 random(5);  // NOLINT(cert-msc51-cpp): the same bytes in every run
  for (int i = 0; i < 100'000; ++i) {
    Bytes pdu(random() % 24);
    for (std::uint8_t& byte : pdu) byte = static_cast<std::uint8_t>(random() % 41);
    server.stepOf(pdu);
    if (const auto answer = ask(pdu)) {
      ASSERT_FALSE(answer->empty());
      ASSERT_LE(answer->size(), server.mtu());
    }
  }
}

TEST_F(AttServerTest, ClassifiesTheStepOfARequest) {
  EXPECT_EQ(server.stepOf(Bytes{0x10, 1, 0, 0xFF, 0xFF, 0x00, 0x28}), Step::discovery);
  EXPECT_EQ(server.stepOf(Bytes{0x08, 1, 0, 0xFF, 0xFF, 0x03, 0x28}), Step::discovery);
  EXPECT_EQ(server.stepOf(Bytes{0x04, 1, 0, 0xFF, 0xFF}), Step::discovery);
  EXPECT_EQ(server.stepOf(Bytes{0x08, 1, 0, 0xFF, 0xFF, 0x00, 0x2A}), Step::other);
  EXPECT_EQ(server.stepOf(Bytes{0x12, 7, 0, 1, 0}), Step::subscription);
  EXPECT_EQ(server.stepOf(Bytes{0x12, 7, 0, 0, 0}), Step::other);
  EXPECT_EQ(server.stepOf(Bytes{0x12, 3, 0, 1, 0}), Step::other);
  EXPECT_EQ(server.stepOf(Bytes{0x02, 64, 0}), Step::other);
  EXPECT_EQ(server.stepOf(Bytes{}), Step::other);
}

TEST(AttServerNotificationTest, CarriesTheHandleAndTheValue) {
  EXPECT_EQ(AttServer::notification(0x0102, Bytes{7, 8}), (Bytes{0x1B, 0x02, 0x01, 7, 8}));
  EXPECT_EQ(AttServer::notification(1, {}), (Bytes{0x1B, 1, 0}));
}

}  // namespace
