// SPDX-License-Identifier: MIT
#include <zephly/ble/gatt_profile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Zephly::characteristicUUID;
using Zephly::Stream;

TEST(GATTProfileTest, CharacteristicIdentifiers) {
  EXPECT_EQ(temperatureCharacteristicUUID().UUIDString(), "45366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  EXPECT_EQ(ecgCharacteristicUUID().UUIDString(), "46366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  EXPECT_EQ(batteryCharacteristicUUID().UUIDString(), "47366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  EXPECT_EQ(respirationCharacteristicUUID().UUIDString(), "48366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  EXPECT_EQ(motionCharacteristicUUID().UUIDString(), "49366E80-CF3A-11E1-9AB4-0002A5D5C51B");
}

TEST(GATTProfileTest, EachStreamHasItsCharacteristic) {
  for (const Stream stream : Zephly::allStreams) {
    EXPECT_EQ(characteristicUUID(stream).UUIDString(), Zephly::streamInfo(stream).characteristic);
  }
  EXPECT_EQ(ecgCharacteristicUUID(), characteristicUUID(Stream::ecg));
  EXPECT_EQ(batteryCharacteristicUUID(), characteristicUUID(Stream::battery));
}

TEST(GATTProfileTest, ListsTheFiveCharacteristicsInOrder) {
  EXPECT_THAT(characteristics(),
              testing::ElementsAre(temperatureCharacteristicUUID(), batteryCharacteristicUUID(),
                                   ecgCharacteristicUUID(), respirationCharacteristicUUID(),
                                   motionCharacteristicUUID()));
}

TEST(GATTProfileTest, AcceptedName) { EXPECT_EQ(peripheralName, "Zephly"); }

TEST(GATTProfileTest, EachConstantIsCreatedOnce) {
  EXPECT_EQ(&ecgCharacteristicUUID(), &ecgCharacteristicUUID());
  EXPECT_EQ(&characteristics(), &characteristics());
}

}  // namespace
