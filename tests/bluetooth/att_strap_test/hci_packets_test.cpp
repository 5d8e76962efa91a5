// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/advertiser.h>
#include <tests/bluetooth/att_strap/bytes.h>
#include <tests/bluetooth/att_strap/hci_packets.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using namespace Zephly::att_strap;
using testing::Optional;

TEST(BytesTest, AreWrittenAndReadAsPairsOfDigits) {
  EXPECT_EQ(toHex(Bytes{0x00, 0x0F, 0xA5}), "000fa5");
  EXPECT_THAT(fromHex("000fA5"), Optional(Bytes{0x00, 0x0F, 0xA5}));
  EXPECT_THAT(fromHex(""), Optional(Bytes{}));
  EXPECT_EQ(fromHex("0"), std::nullopt);
  EXPECT_EQ(fromHex("0g"), std::nullopt);
  EXPECT_EQ(fromHex("-1"), std::nullopt);
}

TEST(HciPacketsReaderTest, SeparatesEventsFromData) {
  PacketReader reader;
  reader.take(Bytes{0x04, 0x05, 1, 9, 0x02, 0x40, 0x00, 2, 0, 7, 8});
  EXPECT_THAT(reader.next(), Optional(Bytes{0x04, 0x05, 1, 9}));
  EXPECT_THAT(reader.next(), Optional(Bytes{0x02, 0x40, 0x00, 2, 0, 7, 8}));
  EXPECT_EQ(reader.next(), std::nullopt);
}

TEST(HciPacketsReaderTest, WaitsForTheRestAfterEveryByte) {
  PacketReader reader;
  const Bytes packet = {0x02, 0x40, 0x00, 2, 0, 7, 8};
  for (const std::uint8_t byte : packet) {
    EXPECT_EQ(reader.next(), std::nullopt);
    reader.take(Bytes{byte});
  }
  EXPECT_THAT(reader.next(), Optional(packet));
}

TEST(HciPacketsReaderTest, StopsAtAnUnknownPacket) {
  PacketReader reader;
  reader.take(Bytes{0x77, 0x04, 0x05, 0});
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_TRUE(reader.lost());
}

TEST(HciPacketsAdvertisingDataTest, HoldsFlagsAndTheWholeName) {
  const Bytes data = advertisingData("Zephly");
  ASSERT_EQ(data.size(), 32U);
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 12),
            (Bytes{11, 2, 0x01, 0x06, 7, 0x09, 'Z', 'e', 'p', 'h', 'l', 'y'}));
}

TEST(HciPacketsAdvertisingDataTest, HoldsNoNameWithoutAName) {
  EXPECT_EQ(advertisingData(std::nullopt)[0], 3);
}

TEST(HciPacketsAdvertisingDataTest, TruncatesALongName) {
  const Bytes data = advertisingData(std::string(40, 'x'));
  ASSERT_EQ(data.size(), 32U);
  EXPECT_EQ(data[0], 31);
  EXPECT_EQ(data[31], 'x');
}

}  // namespace
