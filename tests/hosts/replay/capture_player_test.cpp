// SPDX-License-Identifier: MIT
#include <hosts/replay/capture_player.h>

#include <capture/record.h>
#include <hosts/replay/survey.h>
#include <tests/support/captures.h>
#include <zephly/ble/gatt_profile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::replay {
namespace {

using namespace std::chrono_literals;
using capture::CharacteristicsDiscovered;
using capture::Connected;
using capture::Disconnected;
using capture::Discovered;
using capture::Ended;
using capture::ObjectId;
using capture::Record;
using capture::Report;
using capture::ServicesDiscovered;
using capture::StateChanged;
using capture::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* anyServiceUUID = "47366E80-0000-0000-0000-000000000001";

// A strap that is found, connected and discovered. Its service has the number `first`, and its
// characteristics ECG, respiration, motion, temperature and battery the five that follow.
std::vector<Report> connectionOf(ObjectId peripheral, ObjectId first) {
  const auto uuid = [](const CBUUID& one) { return one.UUIDString(); };
  return {Discovered{.peripheral = peripheral, .name = "Zephly", .RSSI = -60},
          Connected{peripheral},
          ServicesDiscovered{.peripheral = peripheral, .services = {{first, anyServiceUUID}}},
          CharacteristicsDiscovered{
              .peripheral = peripheral,
              .service = first,
              .characteristics = {{first + 1, uuid(ecgCharacteristicUUID()), "1"},
                                  {first + 2, uuid(respirationCharacteristicUUID()), "2"},
                                  {first + 3, uuid(motionCharacteristicUUID()), "3"},
                                  {first + 4, uuid(temperatureCharacteristicUUID()), "4"},
                                  {first + 5, uuid(batteryCharacteristicUUID()), "5"}}}};
}

Value zerosFrom(ObjectId peripheral, ObjectId characteristic, std::size_t bytes) {
  return {peripheral, characteristic, std::vector<std::uint8_t>(bytes)};
}

// One millisecond between two records.
std::vector<PlayedRecord> resultsOf(const std::vector<Report>& reports) {
  std::vector<Record> records;
  for (const Report& report : reports) {
    records.push_back({{.monotonic = records.size() * 1ms}, report});
  }
  const captures::ScratchDirectory scratch;
  CapturePlayer player(scratch.file("a.zcap", captures::captureOf(records)));
  std::vector<PlayedRecord> results;
  const Played all = player.play([&](const PlayedRecord& record) { results.push_back(record); });
  EXPECT_THAT(all.complaints, IsEmpty());
  return results;
}

// The radio is switched on, straps are connected, and `rest` follows.
std::vector<Report> sessionOf(const std::vector<std::vector<Report>>& connections,
                              const std::vector<Report>& rest) {
  std::vector<Report> all = {StateChanged{CBManagerState::poweredOn}};
  for (const auto& connection : connections) {
    all.insert(all.end(), connection.begin(), connection.end());
  }
  all.insert(all.end(), rest.begin(), rest.end());
  return all;
}

TEST(CapturePlayerTest, ReportsTheResultsOfEachRecord) {
  const auto results = resultsOf(
      sessionOf({connectionOf(1, 2)},
                {zerosFrom(1, 3, 18), zerosFrom(1, 4, 18), zerosFrom(1, 5, 20), zerosFrom(1, 6, 4),
                 Value{1, 7, {{0x84, 0x03, 0x01}}}, Disconnected{1}, Ended{}}));
  ASSERT_EQ(results.size(), 12U);
  EXPECT_TRUE(results[2].connected);
  EXPECT_EQ(results[5].time, 5ms);
  EXPECT_EQ(results[5].ecg.size(), 6U);
  EXPECT_THAT(results[5].respiration, IsEmpty());
  EXPECT_EQ(results[6].respiration.size(), 6U);
  ASSERT_EQ(results[6].contacts.size(), 1U);
  EXPECT_TRUE(results[6].contacts[0].off);
  EXPECT_EQ(results[6].contacts[0].sample, 0U);
  EXPECT_TRUE(results[7].motion);
  ASSERT_TRUE(results[8].temperature);
  EXPECT_FLOAT_EQ(results[8].temperature->object, -273.15F);
  EXPECT_FALSE(results[8].motion);
  EXPECT_EQ(results[9].battery, (BatteryStatus{90, true}));
  EXPECT_TRUE(results[10].disconnected);
  EXPECT_FALSE(results[10].battery);
}

TEST(CapturePlayerTest, AMotionReadingNeedsAValueWithoutAnError) {
  const auto results = resultsOf(sessionOf(
      {connectionOf(1, 2)},
      {Value{1, 5, std::nullopt, "No."}, Value{1, 5, std::vector<std::uint8_t>(20), "No."},
       Value{1, 5, std::nullopt}, zerosFrom(1, 5, 3), Ended{}}));
  EXPECT_FALSE(results.at(5).motion);
  EXPECT_FALSE(results.at(6).motion);
  EXPECT_FALSE(results.at(7).motion);
  EXPECT_TRUE(results.at(8).motion);  // a short frame is decoded as if it ended with zeros
}

TEST(CapturePlayerTest, OfTwoConnectedStrapsTheReadingsOfTheLatestCount) {
  const auto results = resultsOf(sessionOf({connectionOf(1, 2), connectionOf(11, 12)},
                                           {zerosFrom(1, 5, 20), zerosFrom(11, 15, 20),
                                            zerosFrom(1, 3, 18), zerosFrom(11, 13, 18), Ended{}}));
  EXPECT_FALSE(results.at(9).motion);
  EXPECT_TRUE(results.at(10).motion);
  EXPECT_THAT(results.at(11).ecg, IsEmpty());
  EXPECT_EQ(results.at(12).ecg.size(), 6U);
}

TEST(CapturePlayerTest, DiscardsTheLinesOfTheKit) {
  std::ostringstream console;
  std::streambuf* const before = std::cout.rdbuf(console.rdbuf());
  const auto results = resultsOf(sessionOf({connectionOf(1, 2)}, {zerosFrom(1, 5, 20), Ended{}}));
  std::cout << "after";
  std::cout.rdbuf(before);
  ASSERT_TRUE(results.at(5).motion);
  EXPECT_EQ(console.str(), "after");
}

TEST(CapturePlayerTest, ACaptureThatIsCutIsPlayedUpToTheCut) {
  std::vector<Record> records;
  for (const Report& report : sessionOf({connectionOf(1, 2)}, {})) records.push_back({{}, report});
  captures::Bytes bytes = captures::captureOf(records);
  bytes.pop_back();
  const captures::ScratchDirectory scratch;
  CapturePlayer player(scratch.file("a.zcap", bytes));
  bool connected = false;
  const Played all =
      player.play([&](const PlayedRecord& record) { connected = connected || record.connected; });
  EXPECT_TRUE(connected);
  EXPECT_EQ(all.records, 4U);
  EXPECT_THAT(all.complaints, ElementsAre(HasSubstr("cut off in the middle of a record")));
}

TEST(BatteryTimesTest, RiseAndHaveAGapWhileThereWasNoLink) {
  BatteryTimes times;
  const auto at = [&](std::chrono::nanoseconds time) {
    return times.take({.time = time, .battery = BatteryStatus{50, false}}).value();
  };
  EXPECT_FALSE(times.take({.time = 1s, .connected = true}));
  EXPECT_EQ(at(2s).gap, 2s);
  EXPECT_EQ(at(12s).gap, 0s);
  EXPECT_EQ(at(12s).time, 12s + 1ns);
  EXPECT_FALSE(times.take({.time = 15s, .disconnected = true}));
  EXPECT_FALSE(times.take({.time = 18s, .disconnected = true}));
  EXPECT_EQ(at(20s).gap, 5s);
  EXPECT_EQ(at(30s).gap, 0s);
}

}  // namespace
}  // namespace Zephly::replay
