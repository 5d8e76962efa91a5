// SPDX-License-Identifier: MIT
#include <tools/export/edf_file.h>

#include <hosts/replay/capture_player.h>
#include <tests/support/captures.h>
#include <tests/support/long_run.h>
#include <tests/tools/export/edf_reader.h>
#include <tests/tools/export/session_script.h>
#include <tools/export/exporter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <iomanip>
#include <limits>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Zephly::exporting;
using namespace Zephly::replay;
using namespace std::chrono_literals;
using captures::ScratchDirectory;
using exporting_test::EdfReader;
using exporting_test::Nanoseconds;
using exporting_test::ReadAnnotation;
using exporting_test::ReadSignal;
using exporting_test::SessionScript;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> exportEdf(const ScratchDirectory& scratch, const SessionScript& script) {
  return exportCapture({.capture = scratch.file("a.zcap", script.bytes()),
                        .edf = scratch / "a.edf",
                        .edfForm = {.utc = true}});
}

std::string failure(const ScratchDirectory& scratch, const SessionScript& script) {
  try {
    exportEdf(scratch, script);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

int count(double value) { return static_cast<int>(std::lround(value / 2.42 * 8388608)); }

// Frames of the stream from `begin` on, six samples each with these values, without delay.
void sendWaveform(SessionScript& script, Nanoseconds begin, const std::vector<double>& values) {
  for (std::size_t first = 0; first + 6 <= values.size(); first += 6) {
    std::array<int, 6> counts{};
    for (std::size_t i = 0; i < 6; ++i) counts[i] = count(values[first + i]);
    const auto arrival = begin + static_cast<int>(first) * 2ms + 10ms;
    script.ecg(arrival, counts);
    script.respiration(arrival, counts);
  }
}

std::vector<double> randomValues(std::size_t size) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> value(-2.42, 2.4199);
  std::vector<double> values(size);
  for (double& one : values) one = value(random);
  return values;
}

// "0.25 1.5 gap: ecg", without a duration "0.25 connected"
std::string lineOf(const ReadAnnotation& annotation) {
  std::ostringstream line;
  line << std::fixed << std::setprecision(4) << annotation.onset << ' ';
  if (annotation.duration) line << *annotation.duration << ' ';
  line << annotation.text;
  return line.str();
}

std::vector<std::string> linesOf(const std::vector<ReadAnnotation>& annotations) {
  std::vector<std::string> lines;
  lines.reserve(annotations.size());
  for (const ReadAnnotation& annotation : annotations) lines.push_back(lineOf(annotation));
  return lines;
}

TEST(EdfTest, TheHeaderDescribesTheSignals) {
  SessionScript script;
  script.connect(1s);
  script.end(2s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  EXPECT_EQ(edf.patient, "X X X X");
  EXPECT_EQ(edf.recording, "Startdate 01-MAR-2026 X X Zephly UTC");
  EXPECT_EQ(edf.date, "01.03.26");
  EXPECT_EQ(edf.time, "09.30.00");
  EXPECT_EQ(edf.type, "EDF+C");
  EXPECT_EQ(edf.recordDuration, 1);
  EXPECT_EQ(edf.records, 3);  // from 0.25 s to 2.25 s
  std::vector<std::string> lines;
  for (const ReadSignal& one : edf.signals) {
    std::ostringstream line;
    line << one.label << '/' << one.dimension << ' ' << one.physicalMinimum << ".."
         << one.physicalMaximum << ' ' << one.digitalMinimum << ".." << one.digitalMaximum << ' '
         << one.perRecord;
    lines.push_back(line.str());
  }
  EXPECT_THAT(lines, ElementsAre("ECG chest/mV -2.42..2.42 -32767..32767 500",
                                 "Resp chest raw/ -2.42..2.42 -32767..32767 500",
                                 "Resp chest filt/ 0..1 -32768..32767 500",
                                 "Temp skin/degC -273.15..1037.55 -32768..32767 1",
                                 "Temp ambient/degC -273.15..1037.55 -32768..32767 1",
                                 "Misc battery/% 0..100 0..1000 1"));
}

// MNE-Python takes the first word of a label for the type of the channel and drops it, and takes
// the prefilter of one signal for that of all.
TEST(EdfTest, TheHeaderIsUnambiguousForMne) {
  const std::set<std::string> types = {"ECG", "Resp", "Temp", "Misc"};
  SessionScript script;
  script.connect(1s);
  script.end(2s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  std::set<std::string> names;
  for (const ReadSignal& one : EdfReader(scratch / "a.edf").signals) {
    EXPECT_EQ(one.prefilter, "") << one.label;
    const std::size_t blank = one.label.find(' ');
    ASSERT_NE(blank, std::string::npos) << one.label;
    EXPECT_EQ(types.count(one.label.substr(0, blank)), 1U) << one.label;
    EXPECT_TRUE(names.insert(one.label.substr(blank + 1)).second) << one.label;
  }
}

TEST(EdfTest, SamplesAreInTheirSlotsWithinHalfAStep) {
  const std::vector<double> values = randomValues(3000);
  SessionScript script;
  script.connect(1s);
  sendWaveform(script, 1s, values);
  script.end(7s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  std::vector<RespirationSample> respiration;
  CapturePlayer(scratch / "a.zcap").play([&](const PlayedRecord& record) {
    respiration.insert(respiration.end(), record.respiration.begin(), record.respiration.end());
  });
  ASSERT_EQ(respiration.size(), 3000U);
  const ReadSignal& ecg = edf.signal("ECG chest");
  const ReadSignal& raw = edf.signal("Resp chest raw");
  const ReadSignal& processed = edf.signal("Resp chest filt");
  ASSERT_EQ(ecg.digital.size(), 8U * 500);
  for (std::size_t slot = 0; slot < ecg.digital.size(); ++slot) {
    // The first sample is taken at 1 s of the session, 1.25 s of the file.
    if (slot < 625 || slot >= 3625) {
      ASSERT_EQ(ecg.physical(slot), 0) << slot;
      ASSERT_EQ(raw.physical(slot), 0) << slot;
      ASSERT_EQ(processed.physical(slot), 0) << slot;
      continue;
    }
    ASSERT_NEAR(ecg.physical(slot), respiration[slot - 625].raw, 0.501 * ecg.step()) << slot;
    ASSERT_NEAR(raw.physical(slot), respiration[slot - 625].raw, 0.501 * raw.step()) << slot;
    ASSERT_NEAR(processed.physical(slot), respiration[slot - 625].processed,
                0.501 * processed.step())
        << slot;
  }
}

TEST(EdfTest, TheEndsOfTheRangeFit) {
  SessionScript script;
  script.connect(0s);
  script.ecg(12ms, {-8388608, 8388607, 0, 0, 0, 0});
  script.end(1s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  const ReadSignal& ecg = edf.signal("ECG chest");
  EXPECT_NEAR(ecg.physical(126), -2.42, ecg.step());
  EXPECT_EQ(ecg.digital[126], -32767);
  EXPECT_EQ(ecg.digital[127], 32767);
}

TEST(EdfTest, TemperaturesAndChargeHaveTheStrapsResolution) {
  SessionScript script;
  script.connect(0s);
  script.battery(500ms, 873, false);
  for (int second = 1; second <= 5; ++second) {
    script.temperature(second * 1s, 15'000U + static_cast<unsigned>(second), 0);
  }
  script.disconnect(6s);
  script.end(50s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  // The file begins a quarter of a second before the session: slot 1 is nearest to reading 1.
  const ReadSignal& skin = edf.signal("Temp skin");
  EXPECT_NEAR(skin.physical(0), 0, 0.0101);
  for (std::size_t slot = 1; slot <= 5; ++slot) {
    EXPECT_EQ(skin.digital[slot], 15'000 - 32'768 + static_cast<int>(slot));
    EXPECT_NEAR(skin.physical(slot), 0.02 * (15'000 + static_cast<double>(slot)) - 273.15, 1e-6);
  }
  EXPECT_NEAR(skin.physical(6), 0, 0.0101);
  EXPECT_EQ(edf.signal("Temp ambient").digital[1], -32768);
  const ReadSignal& battery = edf.signal("Misc battery");
  EXPECT_EQ(battery.digital[0], 0);
  for (std::size_t slot = 1; slot <= 6; ++slot) EXPECT_EQ(battery.digital[slot], 873);
  for (std::size_t slot = 7; slot < 50; ++slot) EXPECT_EQ(battery.digital[slot], 0);
  EXPECT_NEAR(battery.physical(1), 87.3, 1e-9);
}

TEST(EdfTest, AChargeThatIsNotRepeatedBecomesAGap) {
  SessionScript script;
  script.connect(0s);
  script.battery(500ms, 873, false);
  script.end(60s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  EXPECT_EQ(edf.signal("Misc battery").digital[30], 873);
  EXPECT_EQ(edf.signal("Misc battery").digital[31], 0);
}

TEST(EdfTest, GapsAreZeroAndAnnotated) {
  SessionScript script;
  script.connect(1s);
  const std::vector<double> level(600, 0.5);
  sendWaveform(script, 1s, level);
  script.disconnect(2500ms);
  script.connect(4s);
  sendWaveform(script, 4s, level);
  script.end(5500ms);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  const ReadSignal& ecg = edf.signal("ECG chest");
  for (std::size_t slot = 0; slot < ecg.digital.size(); ++slot) {
    const bool there = (slot >= 625 && slot < 1225) || (slot >= 2125 && slot < 2725);
    ASSERT_NEAR(ecg.physical(slot), there ? 0.5 : 0, 1e-4) << slot;
  }
  EXPECT_THAT(linesOf(edf.annotations),
              ElementsAre("0.0000 1.2500 BAD_not connected", "1.2500 4.7500 BAD_electrodes off",
                          "2.4490 1.8010 BAD_link lost", "5.4490 0.5510 BAD_gap"));
}

// Sometimes a sample of a slow strap is repeated and one of a fast strap dropped; nothing drifts.
TEST(EdfTest, ASlowOrFastStrapIsAligned) {
  for (const int drift : {200, -200}) {  // ppm of the period
    SessionScript script;
    script.connect(0s);
    constexpr int frames = 10'000;
    for (int frame = 0; frame < frames; ++frame) {
      std::array<int, 6> counts{};
      for (int i = 0; i < 6; ++i)
        counts[static_cast<std::size_t>(i)] = (6 * frame + i) % 1000 * 4000;
      script.ecg(Nanoseconds((6LL * frame + 5) * (2'000'000 + 2 * drift)), counts);
    }
    script.end(125s);
    const ScratchDirectory scratch;
    ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
    const EdfReader edf(scratch / "a.edf");
    const ReadSignal& ecg = edf.signal("ECG chest");
    const double step = 4000.0 / 8388608 * 2.42;
    int twice = 0;
    int missed = 0;
    long last = -1;
    for (std::size_t slot = 125; slot < 125 + 59'000; ++slot) {
      const double sample = static_cast<double>(slot - 125) / (1 + drift * 1e-6);
      const long value = std::lround(ecg.physical(slot) / step);
      ASSERT_EQ(value, std::lround(sample - 1e-6) % 1000) << slot;
      if (value == last) ++twice;
      if (value == (last + 2) % 1000) ++missed;
      last = value;
    }
    EXPECT_EQ(twice, drift > 0 ? 12 : 0);
    EXPECT_EQ(missed, drift > 0 ? 0 : 12);
  }
}

TEST(EdfTest, WaitsForAStreamFarBehindTheOthers) {
  SessionScript script;
  script.connect(0s);
  constexpr int frames = longRun(5000, 1000);
  const std::array<int, 6> level = {100'000, 100'000, 100'000, 100'000, 100'000, 100'000};
  for (int frame = 1; frame <= frames; ++frame) script.ecg(frame * 12ms, level);
  for (int frame = 1; frame <= frames; ++frame) script.respiration(frames * 12ms, level);
  script.end(frames * 12ms + 1s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  for (std::size_t slot = 200; slot < std::size_t{frames} * 6; ++slot) {
    ASSERT_NE(edf.signal("ECG chest").digital[slot], 0) << slot;
    ASSERT_NE(edf.signal("Resp chest raw").digital[slot], 0) << slot;
  }
}

TEST(EdfTest, WritesManyEventsInAShortTime) {
  SessionScript script;
  for (int i = 0; i < 60; ++i) {
    script.connect(i * 50ms);
    script.ecg(i * 50ms + 12ms, {1, 1, 1, 1, 1, 1});
    script.disconnect(i * 50ms + 14ms);
  }
  script.end(3s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportEdf(scratch, script), IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  const auto lost = std::count_if(
      edf.annotations.begin(), edf.annotations.end(),
      [](const ReadAnnotation& annotation) { return annotation.text == "BAD_link lost"; });
  EXPECT_EQ(lost, 60);
}

TEST(EdfTest, RefusesTooManyEvents) {
  SessionScript script;
  script.preamble.began = 1'772'357'400s;
  script.connect(0s);
  for (int i = 1; i < 80; ++i) {
    script.ecg(i * 12ms, {1, 1, 1, 1, 1, 1});
    script.disconnect(i * 12ms + 1ms);
    script.connect(i * 12ms + 2ms);
  }
  script.end(960ms);
  const ScratchDirectory scratch;
  const std::string error = failure(scratch, script);
  EXPECT_THAT(error, testing::StartsWith("cannot write " + (scratch / "a.edf").string() +
                                         ": more has happened than an EDF+ file can hold: "));
  EXPECT_THAT(error, testing::EndsWith(" events in 1 s (see --csv)"));
  EXPECT_FALSE(std::filesystem::exists(scratch / "a.edf"));
}

TEST(EdfTest, AJumpInTimeDoesNotFillYears) {
  SessionScript script;
  script.connect(0s);
  script.end(900'000'000s);
  const ScratchDirectory scratch;
  EXPECT_EQ(failure(scratch, script),
            "cannot write " + (scratch / "a.edf").string() +
                ": the capture lasts longer than the 7 days that are put into one EDF+ file");
}

TEST(EdfTest, MarksADateThatEdfCannotRepresent) {
  SessionScript script;
  script.preamble.began = 5s;
  script.connect(0s);
  script.end(1s);
  const ScratchDirectory scratch;
  EXPECT_THAT(
      exportEdf(scratch, script),
      ElementsAre((scratch / "a.zcap").string() +
                  ": EDF+ has no such date as 1970-01-01T00:00:05.000000000Z; the file says "
                  "1 January 1985, 00:00"));
  const EdfReader edf(scratch / "a.edf");
  EXPECT_EQ(edf.date + " " + edf.time, "01.01.85 00.00.00");
}

TEST(EdfSignalTest, SamplesThatAreNotWrittenAreZero) {
  const EdfRecords records = EdfRecords::all(1);
  EdfSignal signal(edfKind(EdfChannel::ecg), 0ns, records);
  signal.put(0s, 2ms, 1);
  signal.put(6ms, 8ms, 2.42F);
  EXPECT_FALSE(signal.secondIsReady());
  signal.skip(1s);
  ASSERT_TRUE(signal.secondIsReady());
  const std::int16_t* slots = signal.takeSecond();
  EXPECT_GT(slots[0], 0);
  EXPECT_EQ(slots[1], 0);
  EXPECT_EQ(slots[2], 0);
  EXPECT_EQ(slots[3], 32767);
  EXPECT_EQ(slots[4], 0);
}

TEST(EdfSignalTest, AbsentIsThePhysicalZero) {
  for (std::size_t i = 0; i < edfChannels; ++i) {
    const EdfKind& kind = edfKind(static_cast<EdfChannel>(i));
    const double physical =
        kind.physicalMinimum + (kind.absent() - kind.digitalMinimum) * kind.step();
    // Zero degrees is between two of the strap's steps.
    EXPECT_NEAR(physical, 0, kind.dimension == std::string("degC") ? 0.0101 : 1e-12) << kind.label;
  }
}

TEST(EdfSignalTest, NanIsAbsent) {
  const EdfKind& kind = edfKind(EdfChannel::ecg);
  EXPECT_EQ(kind.digital(std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(kind.digital(std::numeric_limits<float>::infinity()), 32767);
  EXPECT_EQ(kind.digital(-std::numeric_limits<float>::infinity()), -32767);
  EXPECT_EQ(edfKind(EdfChannel::battery).digital(6553.5F), 1000);
}

}  // namespace
