// SPDX-License-Identifier: MIT
#include <tools/watch/summary.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <sstream>
#include <string>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// Six ECG samples sent, `delivered` of them received.
Summary summaryWith(int delivered) {
  StrapReport strap;
  strap.streams[Stream::ecg].sent = 6;
  strap.streams[Stream::ecg].notSubscribed = 12;
  strap.repetitionsDone = {3, 2, 1};
  SessionModel model;
  model.take({0s, Connected{}});
  for (int sample = 0; sample < delivered; ++sample) model.take({1s, EcgSample{0}});
  model.take({1s, LeadOff{true}});
  model.take({1s, LeadOff{false}});
  model.take({1s, Repetition{Exercise::pushUp}});
  return summarize({12'340ms, strap}, model);
}

const StreamSummary& ecgOf(const Summary& summary) {
  return summary.streams.at(static_cast<std::size_t>(Stream::ecg));
}

TEST(SummaryTest, NothingIsLostWhenEverythingArrived) {
  const Summary summary = summaryWith(6);
  EXPECT_EQ(ecgOf(summary).lost(), 0);
  EXPECT_FALSE(summary.anythingLost());
  EXPECT_THAT(losses(summary), IsEmpty());
}

TEST(SummaryTest, CountsUndeliveredSamplesAsLost) {
  const Summary summary = summaryWith(4);
  EXPECT_EQ(ecgOf(summary).lost(), 2);
  EXPECT_TRUE(summary.anythingLost());
  EXPECT_THAT(losses(summary), ElementsAre("lost: 2 of 6 samples of the stream ecg"));
}

TEST(SummaryTest, MoreDeliveredThanSentIsADefect) {
  EXPECT_EQ(ecgOf(summaryWith(7)).lost(), -1);
  EXPECT_TRUE(summaryWith(7).anythingLost());
}

TEST(SummaryTest, TheFirstReportOfContactIsNotAChange) {
  EXPECT_EQ(summaryWith(6).leadOffChanges, 1U);
  EXPECT_EQ(summarize({}, SessionModel()).leadOffChanges, 0U);
}

TEST(SummaryTest, TheTextIsComplete) {
  Summary summary = summaryWith(4);
  summary.streams[0].strap->recording = simulator::PlaybackCounts{100, 25, 0, 1};
  const std::string text = summaryText(summary);
  EXPECT_THAT(text, HasSubstr("Session of 12.3 s of strap time\n"));
  EXPECT_THAT(text,
              HasSubstr("  stream             sent   delivered        lost  not subscribed\n"));
  EXPECT_THAT(text,
              HasSubstr("  ecg                   6           4           2              12\n"));
  EXPECT_THAT(text, HasSubstr("  push-ups     3 done, 1 counted\n"));
  EXPECT_THAT(text, HasSubstr("  jumps        1 done, 0 counted\n"));
  EXPECT_THAT(text, HasSubstr("1 connection, 0 disconnections, 0 reconnections\n"));
  EXPECT_THAT(text, HasSubstr("1 change of contact\n"));
  EXPECT_THAT(text, HasSubstr("temperature: 100 rows in, 25 samples out, 0 filled, 1 beyond"));
}

TEST(SummaryTest, TheTextHasTheRatesAndHowLongTheyWereKnown) {
  EXPECT_THAT(summaryText(summaryWith(6)), Not(HasSubstr("heart rate")));
  SessionModel model;
  model.take({1s, vitals::Second{.time = 1s, .heartRate = {}, .breathingRate = {}, .contact = {}}});
  EXPECT_THAT(summaryText(summarize({1s, std::nullopt}, model)),
              HasSubstr("  heart rate   never known, 0 normal, 0 ectopic, 0 artefacts\n"
                        "  breathing    never known, 0 breaths\n"));
  model.take(
      {2s, vitals::Second{.time = 2s, .heartRate = 60, .breathingRate = 12.25, .contact = {}}});
  model.take(
      {3s, vitals::Second{.time = 3s, .heartRate = 71.5, .breathingRate = {}, .contact = {}}});
  model.take({3s, vitals::Beat{.time = 3s, .rr = {}}});
  model.take({3s, vitals::Beat{.time = 3s, .rr = {}, .kind = vitals::BeatClass::ectopic}});
  model.take({3s, vitals::Beat{.time = 3s, .rr = {}, .kind = vitals::BeatClass::artefact}});
  model.take({3s, vitals::Breath{.time = 3s, .duration = {}}});
  EXPECT_THAT(
      summaryText(summarize({3s, std::nullopt}, model)),
      HasSubstr("  heart rate   65.8 /min (60.0 to 71.5), known for 2 of 3 s, 1 normal, 1 ectopic, "
                "1 artefact\n"
                "  breathing    12.2 /min (12.2 to 12.2), known for 1 of 3 s, 1 breath\n"));
}

// A second of a real strap, a lost link, and the time after it.
Summary summaryOfARealStrap() {
  SessionModel model;
  model.take({1s, Connected{}});
  for (int frame = 0; frame < 10; ++frame) model.take({2s + frame * 100ms, EcgSample{0}});
  model.take({3s, Disconnected{}});
  model.take({3s, Diagnostic{"didDisconnectPeripheral: Out of \x1b range.", "Out of \x1b range."}});
  model.take({5500ms, Connected{}});
  model.take({6s, EcgSample{0}});
  model.take({8s, Disconnected{}});
  return summarize({9s, std::nullopt}, model);
}

TEST(SummaryTest, NothingIsLostWithoutTheStrapsCounts) {
  const Summary summary = summaryOfARealStrap();
  EXPECT_FALSE(ecgOf(summary).lost());
  EXPECT_FALSE(summary.repetitionsDone);
  EXPECT_FALSE(summary.anythingLost());
  EXPECT_THAT(losses(summary), IsEmpty());
}

TEST(SummaryTest, RateAndGapCoverOnlyTheTimeWithALink) {
  const StreamSummary ecg = ecgOf(summaryOfARealStrap());
  EXPECT_EQ(ecg.delivered, 11U);
  EXPECT_EQ(ecg.longestGap, 2s);
  EXPECT_EQ(ecg.perSecond, 11.0 / 3);
}

TEST(SummaryTest, IncludesSilenceUntilTheEndOfTheSession) {
  SessionModel model;
  model.take({1s, Connected{}});
  model.take({2s, EcgSample{0}});
  EXPECT_EQ(ecgOf(summarize({9s, std::nullopt}, model)).longestGap, 7s);
}

TEST(SummaryTest, TheTextOfARealStrapHasAllKnownData) {
  const std::string text = summaryText(summaryOfARealStrap());
  EXPECT_THAT(text, StartsWith("Session of 9.0 s\n"
                               "                                        longest gap\n"
                               "  stream        delivered   per second  within a link\n"
                               "  temperature           0            -\n"
                               "  ecg                  11          3.7        2.000 s\n"));
  EXPECT_THAT(text, HasSubstr("  jumps        0 counted\n"));
  EXPECT_THAT(text, HasSubstr("  link         2 connections, 2 disconnections, 1 reconnection\n"
                              "  link lost    at 0:03 for 2.5 s: Out of ? range.\n"
                              "  link lost    at 0:08 to the end\n"));
}

TEST(SummaryTest, TextFitsAnEightyColumnTerminal) {
  std::istringstream text(summaryText(summaryWith(6)));
  for (std::string line; std::getline(text, line);) EXPECT_LE(line.size(), 80U) << line;
}

}  // namespace
}  // namespace Zephly::watch
