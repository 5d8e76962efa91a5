// SPDX-License-Identifier: MIT
#include <tools/export/edf_annotations.h>

#include <tests/support/captures.h>
#include <tests/support/long_run.h>
#include <tests/tools/export/edf_reader.h>
#include <tests/tools/export/session_script.h>
#include <tools/export/exporter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Zephly::exporting;
using namespace std::chrono_literals;
using captures::ScratchDirectory;
using exporting_test::EdfReader;
using exporting_test::Nanoseconds;
using exporting_test::ReadAnnotation;
using exporting_test::SessionScript;
using testing::ElementsAre;
using testing::IsEmpty;
using Zephly::Stream;
using Zephly::replay::Annotation;
using Kind = Annotation::Kind;

// A session of 100 s, written down as the times in which each stream has samples.
struct Session {
  Zephly::replay::Timeline timeline;

  Session() {
    timeline.end = 100s;
    timeline.clocks[Stream::ecg].rate = {500, 6, 2s};
    timeline.clocks[Stream::respiration].rate = {500, 6, 2s};
    timeline.clocks[Stream::temperature].rate = {1, 1, 5s};
  }

  // Samples from `from` until just before `to`.
  Session& samples(Stream stream, Nanoseconds from, Nanoseconds to) {
    auto& clock = timeline.clocks[stream];
    const double period = clock.rate.period();
    const auto count = static_cast<std::int64_t>(static_cast<double>((to - from).count()) / period);
    const Nanoseconds before = clock.end();
    clock.segments.push_back(
        {.samples = count, .begin = from, .period = period, .gap = from - before});
    return *this;
  }
  Session& waveforms(Nanoseconds from, Nanoseconds to) {
    return samples(Stream::ecg, from, to).samples(Stream::respiration, from, to);
  }
  Session& event(Kind kind, Nanoseconds time) {
    timeline.annotations.push_back({.kind = kind, .time = time});
    return *this;
  }

  // "0.00 1.00 BAD_not connected"
  std::vector<std::string> annotated() const {
    std::vector<std::string> lines;
    for (const EdfAnnotation& one : edfAnnotations(timeline, {0s, 100s})) {
      std::ostringstream line;
      line << std::fixed << std::setprecision(2)
           << std::chrono::duration<double>(one.span.from).count() << ' ';
      if (one.hasDuration) {
        line << std::chrono::duration<double>(one.span.to - one.span.from).count() << ' ';
      }
      line << one.text;
      lines.push_back(line.str());
    }
    return lines;
  }
};

TEST(EdfAnnotationsTest, ALostLinkIsOneAnnotationFromTheLastSampleToTheNext) {
  Session session;
  session.event(Kind::connected, 0s).waveforms(10ms, 39s).samples(Stream::temperature, 1s, 39s);
  session.event(Kind::linkLost, 40s).event(Kind::connected, 45s);
  session.waveforms(46s, 100s).samples(Stream::temperature, 47s, 100s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 0.01 BAD_not connected", "39.00 7.00 BAD_link lost"));
}

// A supervision timeout takes up to 32 s.
TEST(EdfAnnotationsTest, SilenceBeforeALossBelongsToIt) {
  Session session;
  session.event(Kind::connected, 0s).waveforms(10ms, 20s).samples(Stream::temperature, 1s, 20s);
  session.event(Kind::linkLost, 50s).event(Kind::connected, 51s);
  session.waveforms(52s, 100s).samples(Stream::temperature, 53s, 100s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 0.01 BAD_not connected", "20.00 32.00 BAD_link lost"));
}

TEST(EdfAnnotationsTest, LongerSilenceIsAGapOfItsOwn) {
  Session session;
  session.event(Kind::connected, 0s).waveforms(10ms, 10s).samples(Stream::temperature, 1s, 100s);
  session.event(Kind::linkLost, 50s).event(Kind::connected, 51s);
  session.waveforms(52s, 100s);
  EXPECT_THAT(session.annotated(), ElementsAre("0.00 0.01 BAD_not connected", "10.00 8.00 BAD_gap",
                                               "18.00 34.00 BAD_link lost"));
}

TEST(EdfAnnotationsTest, LossesWithoutASampleBetweenThemAreOne) {
  Session session;
  session.event(Kind::connected, 0s).waveforms(10ms, 40s).samples(Stream::temperature, 1s, 40s);
  session.event(Kind::linkLost, 40s).event(Kind::connected, 45s);
  session.event(Kind::linkLost, 46s).event(Kind::connected, 50s);
  session.waveforms(51s, 100s).samples(Stream::temperature, 51s, 100s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 0.01 BAD_not connected", "40.00 11.00 BAD_link lost"));
}

TEST(EdfAnnotationsTest, AGapOfOneStreamNamesIt) {
  Session session;
  session.event(Kind::connected, 0s).samples(Stream::ecg, 10ms, 100s);
  session.samples(Stream::respiration, 10ms, 30s).samples(Stream::respiration, 40s, 100s);
  session.samples(Stream::temperature, 1s, 60s).samples(Stream::temperature, 80s, 100s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 0.01 BAD_not connected", "30.00 10.00 BAD_gap: respiration",
                          "59.50 20.00 gap: temperature"));
}

TEST(EdfAnnotationsTest, AStreamThatReturnsLaterThanTheOtherHasItsOwnGap) {
  Session session;
  session.event(Kind::connected, 0s).waveforms(10ms, 40s).samples(Stream::temperature, 1s, 40s);
  session.event(Kind::linkLost, 40s).event(Kind::connected, 45s);
  session.samples(Stream::ecg, 46s, 100s).samples(Stream::respiration, 60s, 100s);
  session.samples(Stream::temperature, 46s, 100s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 0.01 BAD_not connected", "40.00 6.00 BAD_link lost",
                          "40.00 20.00 BAD_gap: respiration"));
}

TEST(EdfAnnotationsTest, StreamsThatEndAndReturnWithinTwoSecondsHaveOneAnnotation) {
  Session session;
  session.event(Kind::connected, 0s).samples(Stream::ecg, 10ms, 39s);
  session.samples(Stream::respiration, 10ms, 40s).samples(Stream::temperature, 1s, 40s);
  session.event(Kind::linkLost, 40s).event(Kind::connected, 45s);
  session.samples(Stream::ecg, 46s, 100s).samples(Stream::respiration, 47s, 100s);
  session.samples(Stream::temperature, 46s, 100s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 0.01 BAD_not connected", "39.00 8.00 BAD_link lost"));
}

TEST(EdfAnnotationsTest, SilenceOfBothWaveformsOverALinkIsOneGap) {
  Session session;
  session.event(Kind::connected, 0s).waveforms(10ms, 40s).waveforms(50s, 100s);
  session.samples(Stream::temperature, 1s, 100s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 0.01 BAD_not connected", "40.00 10.00 BAD_gap"));
}

TEST(EdfAnnotationsTest, ASessionOfTemperaturesIsNotCalledUnconnected) {
  Session session;
  session.event(Kind::connected, 3s).samples(Stream::temperature, 4s, 100s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 35.00 BAD_not connected", "35.00 65.00 BAD_gap"));
}

TEST(EdfAnnotationsTest, ALinkThatStaysLostLastsToTheEnd) {
  Session session;
  session.event(Kind::connected, 0s).waveforms(10ms, 40s).samples(Stream::temperature, 1s, 40s);
  session.event(Kind::linkLost, 40s);
  EXPECT_THAT(session.annotated(),
              ElementsAre("0.00 0.01 BAD_not connected", "40.00 60.00 BAD_link lost"));
}

TEST(EdfAnnotationsTest, ElectrodesAreOffUntilTheNextContactOrTheEnd) {
  Session session;
  session.event(Kind::connected, 0s).waveforms(0s, 100s).samples(Stream::temperature, 1s, 100s);
  session.event(Kind::electrodesOff, 10s).event(Kind::jump, 11s).event(Kind::electrodesOn, 12s);
  session.event(Kind::electrodesOff, 90s);
  EXPECT_THAT(session.annotated(), ElementsAre("10.00 2.00 BAD_electrodes off", "11.00 jump",
                                               "90.00 10.00 BAD_electrodes off"));
}

// Random sessions: links of random length, whose streams begin late, end early, and pause. A slot
// of a waveform is zero exactly where it has no sample.
TEST(EdfAnnotationsTest, EveryEmptySlotIsInAnAnnotationThatMneExcludes) {
  std::mt19937 random(9);
  const auto between = [&](int from, int to) {
    return std::uniform_int_distribution<int>(from, to)(random) * 1ms;
  };
  for (int round = 0; round < longRun(20, 3); ++round) {
    SessionScript script;
    Nanoseconds time = between(0, 3000);
    for (int link = 0; link < 5; ++link) {
      const Nanoseconds end = time + between(0, 9000);
      script.connect(time);
      Nanoseconds ecgFrom = time + between(0, 4000);
      Nanoseconds respirationFrom = time + between(0, 300);
      const Nanoseconds pause = time + between(1000, 9000);
      const Nanoseconds resume = pause + between(0, 4000);
      for (time += 12ms; time < end; time += 12ms) {
        const std::array<int, 6> level = {400'000, 400'000, 400'000, 400'000, 400'000, 400'000};
        if (time >= ecgFrom && (time < pause || time > resume)) script.ecg(time, level);
        if (time >= respirationFrom) script.respiration(time, level);
      }
      script.disconnect(time += between(0, 3000));
      time += between(1, 2000);
    }
    script.end(time);
    const ScratchDirectory scratch;
    ASSERT_THAT(exportCapture(
                    {.capture = scratch.file("a.zcap", script.bytes()), .edf = scratch / "a.edf"}),
                IsEmpty());
    const EdfReader edf(scratch / "a.edf");
    const auto isExcluded = [&](std::size_t slot) {
      const double at = static_cast<double>(slot) / 500;
      return std::any_of(
          edf.annotations.begin(), edf.annotations.end(), [&](const ReadAnnotation& one) {
            // A constant level is no contact.
            return one.text.starts_with("BAD_") && one.text != "BAD_electrodes off" &&
                   one.onset <= at && at < one.onset + *one.duration;
          });
    };
    for (const char* label : {"ECG chest", "Resp chest raw"}) {
      const auto& digital = edf.signal(label).digital;
      std::size_t empty = 0;  // in a row
      for (std::size_t slot = 0; slot < digital.size(); ++slot) {
        empty = digital[slot] == 0 && !isExcluded(slot) ? empty + 1 : 0;
        // A break of less than one and a half frames does not count.
        ASSERT_LT(empty, 9U) << label << ' ' << slot << " in round " << round;
      }
    }
    const auto lost =
        std::count_if(edf.annotations.begin(), edf.annotations.end(),
                      [](const ReadAnnotation& one) { return one.text == "BAD_link lost"; });
    EXPECT_LE(lost, 5);
  }
}

}  // namespace
