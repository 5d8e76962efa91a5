// SPDX-License-Identifier: MIT
#include <zephly/platform/cb_uuid.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(CBUUIDTest, LongFormReadsBackInUpperCase) {
  const auto uuid = CBUUID::UUIDWithString("45366e80-cf3a-11e1-9ab4-0002a5d5c51b");
  EXPECT_EQ(uuid.UUIDString(), "45366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  EXPECT_EQ(uuid.description(), uuid.UUIDString());
}

TEST(CBUUIDTest, ExpandsShortFormsWithTheBluetoothBase) {
  EXPECT_EQ(CBUUID::UUIDWithString("180F").UUIDString(), "0000180F-0000-1000-8000-00805F9B34FB");
  EXPECT_EQ(CBUUID::UUIDWithString("ABCD180F").UUIDString(),
            "ABCD180F-0000-1000-8000-00805F9B34FB");
}

TEST(CBUUIDTest, IsEqualComparesAll128Bits) {
  const std::string text = "45366E80-CF3A-11E1-9AB4-0002A5D5C51B";
  const auto uuid = CBUUID::UUIDWithString(text);
  EXPECT_TRUE(uuid.isEqual(CBUUID::UUIDWithString(text)));
  for (std::size_t position = 0; position < text.size(); ++position) {
    if (text[position] == '-') continue;
    std::string other = text;
    other[position] = text[position] == '0' ? '8' : '0';
    EXPECT_FALSE(uuid.isEqual(CBUUID::UUIDWithString(other))) << other;
  }
}

TEST(CBUUIDTest, ParseRefusesOtherText) {
  for (const char* text :
       {"", "1", "180", "180G", "180g", "ABCD180", "45366E80CF3A11E19AB40002A5D5C51B",
        "45366E80-CF3A-11E1-9AB4-0002A5D5C51", "45366E80-CF3A-11E1-9AB4-0002A5D5C51B0",
        "45366E80-CF3A-11E1-9AB40-002A5D5C51B", "45366E8--CF3A-11E1-9AB4-0002A5D5C51B",
        "4536 E80-CF3A-11E1-9AB4-0002A5D5C51B"}) {
    EXPECT_FALSE(CBUUID::parse(text)) << text;
  }
}

TEST(CBUUIDDeathTest, UUIDWithStringReportsTheRefusedText) {
  EXPECT_DEATH(CBUUID::UUIDWithString("not one"), "\"not one\" is not a Bluetooth UUID");
}

}  // namespace
