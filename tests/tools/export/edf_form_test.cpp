// SPDX-License-Identifier: MIT
// The forms of an EDF+ file: its clock, and what becomes of gaps.
#include <tests/support/captures.h>
#include <tests/tools/export/edf_reader.h>
#include <tests/tools/export/session_script.h>
#include <tools/export/edf_discontinuous.h>
#include <tools/export/edf_records.h>
#include <tools/export/edf_start.h>
#include <tools/export/exporter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <array>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace {

using namespace Zephly::exporting;
using namespace std::chrono_literals;
using captures::ScratchDirectory;
using exporting_test::EdfReader;
using exporting_test::Nanoseconds;
using exporting_test::ReadAnnotation;
using exporting_test::ReadSignal;
using exporting_test::SessionScript;
using testing::ElementsAre;
using testing::IsEmpty;

// The local time zone during its lifetime, in the form of POSIX, which needs no file.
class LocalZone {
 public:
  explicit LocalZone(const char* zone) {
    if (const char* before = ::getenv("TZ")) before_ = before;
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  LocalZone(const LocalZone&) = delete;
  LocalZone& operator=(const LocalZone&) = delete;
  ~LocalZone() {
    if (before_) {
      ::setenv("TZ", before_->c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }

 private:
  std::optional<std::string> before_;
};

constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* newfoundland = "NST3:30NDT,M3.2.0,M11.1.0";

std::string failureOf(const ExportOptions& options) {
  try {
    exportCapture(options);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

// "01.03.26 10.30.00 Startdate 01-MAR-2026 X X Zephly UTC+01:00"
std::string startOf(Nanoseconds began, bool utc, bool simulated = false) {
  SessionScript script;
  script.preamble.began = began;
  script.preamble.simulated = simulated;
  script.end(1s);
  const ScratchDirectory scratch;
  EXPECT_THAT(exportCapture({.capture = scratch.file("a.zcap", script.bytes()),
                             .edf = scratch / "a.edf",
                             .edfForm = {.utc = utc}}),
              IsEmpty());
  const EdfReader edf(scratch / "a.edf");
  return edf.date + " " + edf.time + " " + edf.recording;
}

constexpr auto marchBegan = 1'772'357'400s + 250ms;  // 2026-03-01T09:30:00Z
constexpr auto julyBegan = 1'782'862'200s;           // 2026-06-30T23:30:00Z

TEST(EdfFormStartTest, IsLocalTimeWithItsOffset) {
  const LocalZone zone(berlin);
  EXPECT_EQ(startOf(marchBegan, false),
            "01.03.26 10.30.00 Startdate 01-MAR-2026 X X Zephly UTC+01:00");
  EXPECT_EQ(startOf(julyBegan, false, true),
            "01.07.26 01.30.00 Startdate 01-JUL-2026 X X Zephly UTC+02:00 simulated");
}

TEST(EdfFormStartTest, OffsetsMayBeNegativeAndHaveMinutes) {
  const LocalZone zone(newfoundland);
  EXPECT_EQ(startOf(marchBegan, false),
            "01.03.26 06.00.00 Startdate 01-MAR-2026 X X Zephly UTC-03:30");
}

TEST(EdfFormStartTest, IsUtcOnRequest) {
  const LocalZone zone(berlin);
  EXPECT_EQ(startOf(marchBegan, true), "01.03.26 09.30.00 Startdate 01-MAR-2026 X X Zephly UTC");
  EXPECT_EQ(startOf(julyBegan, true, true),
            "30.06.26 23.30.00 Startdate 30-JUN-2026 X X Zephly UTC simulated");
}

TEST(EdfFormStartTest, TheYearsOfEdfAreLocal) {
  const LocalZone zone(berlin);
  const auto began = 473'385'600s - 30min;  // 1984-12-31T23:30:00Z
  EXPECT_TRUE(edfStart(began, EdfClock::local).isDated);
  EXPECT_FALSE(edfStart(began, EdfClock::utc).isDated);
  const auto ended = 3'629'145'600s - 30min;  // 2084-12-31T23:30:00Z
  EXPECT_FALSE(edfStart(ended, EdfClock::local).isDated);
  EXPECT_TRUE(edfStart(ended, EdfClock::utc).isDated);
}

constexpr std::array<int, 6> flatFrame = {400'000, 400'000, 400'000, 400'000, 400'000, 400'000};

// Both waveforms at a constant level, and temperature, over a link of its own.
void addLink(SessionScript& script, Nanoseconds from, Nanoseconds to) {
  script.connect(from);
  script.battery(from + 5ms, 500, false);
  Nanoseconds temperature = from + 1s;
  for (Nanoseconds time = from + 12ms; time <= to; time += 12ms) {
    script.ecg(time, flatFrame);
    script.respiration(time, flatFrame);
    if (time < temperature) continue;
    script.temperature(time, 15'000, 14'000);
    temperature += 1s;
  }
  script.disconnect(to + 1ms);
}

ExportOptions optionsFor(const ScratchDirectory& scratch, const SessionScript& script,
                         bool discontinuous) {
  return {.capture = scratch.file("a.zcap", script.bytes()),
          .edf = scratch / (discontinuous ? "d.edf" : "c.edf"),
          .edfForm = {.discontinuous = discontinuous, .utc = true}};
}

TEST(EdfFormTest, LeavesOutTheSecondsWithoutSamples) {
  SessionScript script;
  addLink(script, 3s, 5s);
  addLink(script, 20s, 22s);
  script.end(30s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCapture(optionsFor(scratch, script, true)), IsEmpty());
  const EdfReader edf(scratch / "d.edf");
  EXPECT_EQ(edf.type, "EDF+D");
  // The file begins a quarter of a second before the session: the samples are from 3.25 s to 5.25 s
  // and from 20.25 s to 22.25 s.
  EXPECT_THAT(edf.onsets, ElementsAre(0, 3, 4, 5, 20, 21, 22));
  EXPECT_EQ(edf.records, 7);
  EXPECT_EQ(edf.signal("ECG chest").digital.size(), 7U * 500);
  ASSERT_EQ(edf.annotations.size(), 4U);
  EXPECT_EQ(edf.annotations[2].text, "BAD_link lost");
  EXPECT_NEAR(edf.annotations[2].onset, 5.243, 1e-4);
  EXPECT_NEAR(*edf.annotations[2].duration, 15.008, 2e-4);
}

TEST(EdfFormTest, HasTheSamplesAndAnnotationsOfTheContinuousFile) {
  SessionScript script;
  Nanoseconds time = 700ms;
  for (int link = 1; link <= 15; ++link) {
    addLink(script, time, time + link * 300ms);
    time += link * 300ms + (link * 7 % 5) * 1130ms + 20ms;
  }
  script.end(time + 4s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCapture(optionsFor(scratch, script, false)), IsEmpty());
  ASSERT_THAT(exportCapture(optionsFor(scratch, script, true)), IsEmpty());
  const EdfReader all(scratch / "c.edf");
  const EdfReader some(scratch / "d.edf");
  EXPECT_LT(some.records, all.records - 10);
  for (std::size_t i = 0; i < all.signals.size(); ++i) {
    const ReadSignal& one = all.signals[i];
    const auto perRecord = static_cast<std::size_t>(one.perRecord);
    std::vector<int> expected;
    for (const long onset : some.onsets) {
      const auto from = one.digital.begin() + onset * one.perRecord;
      expected.insert(expected.end(), from, from + one.perRecord);
    }
    EXPECT_EQ(some.signals[i].digital, expected) << one.label;
    if (one.label != "ECG chest") continue;
    // Every second that was left out is empty.
    std::size_t next = 0;
    for (std::size_t second = 0; second < one.digital.size() / perRecord; ++second) {
      if (next < some.onsets.size() && some.onsets[next] == static_cast<long>(second)) {
        ++next;
        continue;
      }
      for (std::size_t slot = 0; slot < perRecord; ++slot) {
        ASSERT_EQ(one.digital[second * perRecord + slot], 0) << second;
      }
    }
  }
  const auto asText = [](const EdfReader& edf) {
    std::vector<std::string> lines;
    for (const ReadAnnotation& one : edf.annotations) {
      lines.push_back(std::to_string(one.onset) + " " + std::to_string(one.duration.value_or(0)) +
                      " " + one.text);
    }
    return lines;
  };
  EXPECT_EQ(asText(some), asText(all));
}

TEST(EdfFormTest, IsTheFormForALongGap) {
  constexpr auto days = 48h;
  SessionScript script;
  addLink(script, 1s, 10s);
  addLink(script, 10s + days, 20s + days);
  script.end(21s + days);
  const ScratchDirectory scratch;
  EXPECT_EQ(failureOf(optionsFor(scratch, script, false)),
            "cannot write " + (scratch / "c.edf").string() +
                ": a gap of 172799 s is too long to be filled (see --edf-discontinuous)");
  EXPECT_FALSE(std::filesystem::exists(scratch / "c.edf"));
  ASSERT_THAT(exportCapture(optionsFor(scratch, script, true)), IsEmpty());
  EXPECT_LT(std::filesystem::file_size(scratch / "d.edf"), 80'000U);
  const EdfReader edf(scratch / "d.edf");
  EXPECT_EQ(edf.records, 22);
  EXPECT_EQ(edf.onsets[11], 172'810);
}

TEST(EdfFormTest, AnHourIsFilledAndASecondMoreIsNot) {
  for (const auto gap : {3600s, 3601s}) {
    SessionScript script;
    script.preamble.began = 1'772'357'400s;
    addLink(script, 0s, 996ms);
    addLink(script, 1s + gap, 2s + gap);
    script.end(3s + gap);
    const ScratchDirectory scratch;
    const std::string failure = failureOf(optionsFor(scratch, script, false));
    EXPECT_EQ(failure.empty(), gap == 3600s) << failure;
  }
}

// Years take no memory and no time.
TEST(EdfFormTest, AJumpInTimeIsAGap) {
  SessionScript script;
  addLink(script, 0s, 1s);
  addLink(script, 900'000'000s, 900'000'001s);
  script.end(900'000'002s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCapture(optionsFor(scratch, script, true)), IsEmpty());
  EXPECT_THAT(EdfReader(scratch / "d.edf").onsets, ElementsAre(0, 1, 900'000'000, 900'000'001));
}

TEST(EdfFormTest, ASessionWithoutSamplesIsOneRecord) {
  SessionScript script;
  script.end(90s);
  const ScratchDirectory scratch;
  ASSERT_THAT(exportCapture(optionsFor(scratch, script, true)), IsEmpty());
  const EdfReader edf(scratch / "d.edf");
  EXPECT_THAT(edf.onsets, ElementsAre(0));
  ASSERT_EQ(edf.annotations.size(), 1U);
  EXPECT_EQ(edf.annotations[0].duration, 91);
}

TEST(EdfFormTest, ChangesNoOtherFile) {
  const ScratchDirectory scratch;
  EXPECT_THROW(makeDiscontinuous(scratch / "none", EdfRecords::all(1)), std::system_error);
  const captures::Bytes text(2000, '7');
  const auto file = scratch.file("text", text);
  EXPECT_THROW(makeDiscontinuous(file, EdfRecords::all(1)), std::runtime_error);
  EXPECT_EQ(captures::contentOf(file), text);
}

}  // namespace
