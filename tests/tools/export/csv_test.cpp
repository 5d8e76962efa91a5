// SPDX-License-Identifier: MIT
#include <tools/export/csv_files.h>

#include <hosts/foundation/data.h>
#include <hosts/replay/capture_player.h>
#include <tests/support/captures.h>
#include <tests/support/text_of.h>
#include <tests/tools/export/session_script.h>
#include <tools/export/exporter.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/protocol/frame_decoders.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <charconv>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Zephly::exporting;
using namespace Zephly::replay;
using namespace std::chrono_literals;
using captures::ScratchDirectory;
using exporting_test::SessionScript;
using testing::ElementsAre;

std::vector<std::vector<std::string>> rowsOf(const std::filesystem::path& path) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(textOf(path));
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> cells;
    std::istringstream stream(line);
    for (std::string cell; std::getline(stream, cell, ',');) cells.push_back(cell);
    rows.push_back(cells);
  }
  return rows;
}

float floatOf(const std::string& text) {
  float value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  EXPECT_EQ(result.ptr, text.data() + text.size()) << text;
  return value;
}

std::vector<std::string> exportCsv(const ScratchDirectory& scratch, const SessionScript& script) {
  return exportCapture({.capture = scratch.file("a.zcap", script.bytes()), .csv = scratch / "csv"});
}

TEST(CsvTest, WritesASmallSession) {
  SessionScript script;
  script.connect(1s);
  script.battery(1010ms, 875, false);
  script.ecg(1012ms, {0, 1, -1, 8388607, -8388608, 4194304});
  script.temperature(1500ms, 15000, 14000);
  script.motion(1600ms, {16384, 0, -16384, 1}, {65536, 0, -32768});
  script.disconnect(2s);
  script.connect(5s);
  script.ecg(5012ms, {2, 2, 2, 2, 2, 2});
  script.battery(5500ms, 874, true);
  script.end(6s);
  const ScratchDirectory scratch;
  EXPECT_THAT(exportCsv(scratch, script), ElementsAre());

  EXPECT_EQ(textOf(scratch / "csv" / "ecg.csv"),
            "time_s,date_utc,gap_s,ecg_mV\n"
            "1.002000000,2026-03-01T09:30:01.252000000Z,1.002000000,0\n"
            "1.004000000,2026-03-01T09:30:01.254000000Z,,2.884865e-07\n"
            "1.006000000,2026-03-01T09:30:01.256000000Z,,-2.884865e-07\n"
            "1.008000000,2026-03-01T09:30:01.258000000Z,,2.4199998\n"
            "1.010000000,2026-03-01T09:30:01.260000000Z,,-2.42\n"
            "1.012000000,2026-03-01T09:30:01.262000000Z,,1.21\n"
            "5.002000000,2026-03-01T09:30:05.252000000Z,3.988000000,5.76973e-07\n"
            "5.004000000,2026-03-01T09:30:05.254000000Z,,5.76973e-07\n"
            "5.006000000,2026-03-01T09:30:05.256000000Z,,5.76973e-07\n"
            "5.008000000,2026-03-01T09:30:05.258000000Z,,5.76973e-07\n"
            "5.010000000,2026-03-01T09:30:05.260000000Z,,5.76973e-07\n"
            "5.012000000,2026-03-01T09:30:05.262000000Z,,5.76973e-07\n");
  EXPECT_EQ(textOf(scratch / "csv" / "respiration.csv"),
            "time_s,date_utc,gap_s,raw,processed,processed_time_s\n");
  EXPECT_EQ(textOf(scratch / "csv" / "temperature.csv"),
            "time_s,date_utc,gap_s,skin_degC,ambient_degC,body_estimate_degC\n"
            "1.500000000,2026-03-01T09:30:01.750000000Z,1.500000000,26.850006,6.850006,\n");
  EXPECT_EQ(textOf(scratch / "csv" / "motion.csv"),
            "time_s,date_utc,gap_s,qw,qx,qy,qz,ax_g,ay_g,az_g\n"
            "1.600000000,2026-03-01T09:30:01.850000000Z,1.600000000,1,0,-1,6.1035156e-05,1,0,"
            "-0.5\n");
  EXPECT_EQ(textOf(scratch / "csv" / "battery.csv"),
            "time_s,date_utc,gap_s,charge_percent,charging\n"
            "1.010000000,2026-03-01T09:30:01.260000000Z,1.010000000,87.5,0\n"
            "5.500000000,2026-03-01T09:30:05.750000000Z,3.500000000,87.4,1\n");
  EXPECT_EQ(textOf(scratch / "csv" / "events.csv"),
            "time_s,date_utc,event,stream,duration_s\n"
            "0.000000000,2026-03-01T09:30:00.250000000Z,gap,ecg,1.002000000\n"
            "0.000000000,2026-03-01T09:30:00.250000000Z,gap,respiration,6.000000000\n"
            "0.000000000,2026-03-01T09:30:00.250000000Z,gap,temperature,1.500000000\n"
            "0.000000000,2026-03-01T09:30:00.250000000Z,gap,motion,1.600000000\n"
            "1.000000000,2026-03-01T09:30:01.250000000Z,connected,,\n"
            "1.014000000,2026-03-01T09:30:01.264000000Z,gap,ecg,3.988000000\n"
            "1.633333333,2026-03-01T09:30:01.883333333Z,gap,motion,4.366666667\n"
            "2.000000000,2026-03-01T09:30:02.250000000Z,link lost,,3.000000000\n"
            "5.000000000,2026-03-01T09:30:05.250000000Z,connected,,\n");
}

TEST(CsvTest, WritesTheKitsNumbersBitForBit) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int> count(-8388608, 8388607);
  SessionScript script;
  script.connect(1s);
  for (int frame = 1; frame <= 200; ++frame) {
    std::array<int, 6> counts{};
    for (int& one : counts) one = count(random);
    script.ecg(1s + frame * 12ms, counts);
    script.respiration(1s + frame * 12ms, counts);
  }
  script.end(5s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCsv(scratch, script), ElementsAre());

  std::vector<float> raw;
  std::vector<RespirationSample> respiration;
  CapturePlayer player(scratch / "a.zcap");
  player.play([&](const PlayedRecord& record) {
    raw.insert(raw.end(), record.ecg.begin(), record.ecg.end());
    respiration.insert(respiration.end(), record.respiration.begin(), record.respiration.end());
  });
  ASSERT_EQ(raw.size(), 1200U);
  ASSERT_EQ(respiration.size(), 1200U);
  const auto ecgRows = rowsOf(scratch / "csv" / "ecg.csv");
  const auto respirationRows = rowsOf(scratch / "csv" / "respiration.csv");
  ASSERT_EQ(ecgRows.size(), 1201U);
  ASSERT_EQ(respirationRows.size(), 1201U);
  const auto bits = [](float value) { return std::bit_cast<std::uint32_t>(value); };
  for (std::size_t i = 0; i < 1200; ++i) {
    EXPECT_EQ(bits(floatOf(ecgRows[i + 1][3])), bits(raw[i])) << i;
    EXPECT_EQ(bits(floatOf(respirationRows[i + 1][3])), bits(respiration[i].raw)) << i;
    EXPECT_EQ(bits(floatOf(respirationRows[i + 1][4])), bits(respiration[i].processed)) << i;
    EXPECT_EQ(bits(respiration[i].raw), bits(raw[i])) << i;  // the same frames were sent
  }
}

// Both windows of the estimate are full with its 20th reading; a lost link does not empty them.
TEST(CsvTest, TheBodyEstimateIsThatOfTheEngineFromThe20thReading) {
  SessionScript script;
  script.connect(1s);
  Zephly::SignalProcessor engine;
  std::vector<float> expected;
  for (unsigned reading = 1; reading <= 30; ++reading) {
    const unsigned skin = 15'300 + 7 * reading;
    const unsigned ambient = 14'800 - 3 * reading;
    script.temperature(1s + reading * 1s, skin, ambient);
    if (reading == 25) {
      script.disconnect(26'500ms);
      script.connect(26'600ms);
    }
    const auto degrees = FrameDecoders::calculateTemperatureValue(
        *Zephly::hosts::Data::of(SessionScript::temperatureFrame(skin, ambient)));
    expected.push_back(
        engine.processBodyTemperature(degrees.objectTemperature, degrees.ambientTemperature));
  }
  script.end(40s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCsv(scratch, script), ElementsAre());
  const auto rows = rowsOf(scratch / "csv" / "temperature.csv");
  ASSERT_EQ(rows.size(), 31U);
  ASSERT_EQ(rows[0][5], "body_estimate_degC");
  for (std::size_t reading = 1; reading <= 30; ++reading) {
    if (reading < 20) {
      EXPECT_EQ(rows[reading].size(), 5U) << "no estimate at reading " << reading;
    } else {
      ASSERT_EQ(rows[reading].size(), 6U) << reading;
      EXPECT_EQ(floatOf(rows[reading][5]), expected[reading - 1]) << reading;
    }
  }
}

TEST(CsvTest, ProcessedRespirationHasTheTimeOfItsBreath) {
  SessionScript script;
  script.connect(100ms);
  for (int frame = 1; frame <= 100; ++frame) {
    script.respiration(100ms + frame * 12ms, {1, 2, 3, 4, 5, 6});
  }
  script.end(2s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCsv(scratch, script), ElementsAre());
  const auto rows = rowsOf(scratch / "csv" / "respiration.csv");
  ASSERT_EQ(rows.size(), 601U);
  EXPECT_EQ(rows[0][5], "processed_time_s");
  EXPECT_EQ(rows[1][0], "0.102000000");
  EXPECT_EQ(rows[1][5], "-0.548000000");  // before the session
  EXPECT_EQ(rows[275][0], "0.650000000");
  EXPECT_EQ(rows[275][5], "0.000000000");
  EXPECT_EQ(rows[600][0], "1.300000000");
  EXPECT_EQ(rows[600][5], "0.650000000");
}

TEST(CsvTest, ReportsElectrodesAtTheirSample) {
  SessionScript script;
  script.connect(1s);
  // Flat for 40 frames and a half, then varying: contact.
  for (int frame = 1; frame <= 80; ++frame) {
    const int before = frame > 41 ? 400'000 : 0;
    const int after = frame > 40 ? 400'000 : 0;
    script.respiration(1s + frame * 12ms, {before, -before, before, -after, after, -after});
  }
  script.end(3s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCsv(scratch, script), ElementsAre());
  std::vector<std::string> events;
  for (const auto& row : rowsOf(scratch / "csv" / "events.csv")) {
    if (row[2].starts_with("electrodes")) events.push_back(row[0] + " " + row[2]);
  }
  // At the first sample, and at the first varying one after 243 flat samples.
  EXPECT_THAT(events, ElementsAre("1.002000000 electrodes off", "1.488000000 electrodes on"));
}

TEST(CsvTest, WritesTwoChargesOfTheSameTimeInOrder) {
  SessionScript script;
  script.connect(1s);
  script.battery(2s, 500, false);
  script.battery(2s, 499, false);
  script.end(3s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCsv(scratch, script), ElementsAre());
  const auto rows = rowsOf(scratch / "csv" / "battery.csv");
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[1][0], "2.000000000");
  EXPECT_EQ(rows[2][0], "2.000000001");
  EXPECT_EQ(rows[2][2], "");
}

TEST(CsvTest, DatesCrossDaysAndLeapYears) {
  EXPECT_EQ(dateText(0ns), "1970-01-01T00:00:00.000000000Z");
  EXPECT_EQ(dateText(951'827'696s + 7ns), "2000-02-29T12:34:56.000000007Z");
  EXPECT_EQ(dateText(4'102'444'799s + 999'999'999ns), "2099-12-31T23:59:59.999999999Z");
}

}  // namespace
