#include <tools/monitor/summary.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>

namespace Zephly::monitor {
namespace {

using namespace std::chrono_literals;
using strap::Stream;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Six ECG samples sent, `delivered` of them received.
Summary summaryWith(int delivered) {
  StrapReport strap;
  strap.duration = 12'340ms;
  strap.streams[static_cast<std::size_t>(Stream::ecg)].sent = 6;
  strap.streams[static_cast<std::size_t>(Stream::ecg)].unheard = 12;
  strap.repetitionsDone = {3, 2, 1};
  SessionModel model;
  model.take({0s, Connected{}});
  for (int sample = 0; sample < delivered; ++sample) model.take({1s, EcgSample{0}});
  model.take({1s, LeadOff{true}});
  model.take({1s, LeadOff{false}});
  model.take({1s, Repetition{strap::Exercise::pushUp}});
  return summarize(strap, model);
}

const StreamSummary& ecgOf(const Summary& summary) {
  return summary.streams.at(static_cast<std::size_t>(Stream::ecg));
}

TEST(SummaryTest, NothingIsLostWhenAllThatWasSentArrived) {
  const Summary summary = summaryWith(6);
  EXPECT_EQ(ecgOf(summary).lost(), 0);
  EXPECT_FALSE(summary.anythingLost());
  EXPECT_THAT(losses(summary), IsEmpty());
}

TEST(SummaryTest, WhatWasSentAndNotDeliveredIsLost) {
  const Summary summary = summaryWith(4);
  EXPECT_EQ(ecgOf(summary).lost(), 2);
  EXPECT_TRUE(summary.anythingLost());
  EXPECT_THAT(losses(summary), ElementsAre("lost: 2 of 6 samples of the stream ecg"));
}

TEST(SummaryTest, MoreThanWasSentIsADefectToo) {
  EXPECT_EQ(ecgOf(summaryWith(7)).lost(), -1);
  EXPECT_TRUE(summaryWith(7).anythingLost());
}

TEST(SummaryTest, TheFirstReportOfContactIsNoChange) {
  EXPECT_EQ(summaryWith(6).leadOffChanges, 1U);
  EXPECT_EQ(summarize({}, SessionModel()).leadOffChanges, 0U);
}

TEST(SummaryTest, TextTellsEverything) {
  Summary summary = summaryWith(4);
  summary.streams[0].strap.recording = strap::PlaybackCounts{100, 25, 0, 1};
  const std::string text = summaryText(summary);
  EXPECT_THAT(text, HasSubstr("Session of 12.3 s of strap time\n"));
  EXPECT_THAT(text, HasSubstr("  ecg                   6           4           2          12\n"));
  EXPECT_THAT(text, HasSubstr("  push-ups     3 done, 1 counted\n"));
  EXPECT_THAT(text, HasSubstr("  jumps        1 done, 0 counted\n"));
  EXPECT_THAT(text, HasSubstr("1 connection, 0 disconnections, 0 reconnections\n"));
  EXPECT_THAT(text, HasSubstr("1 change of contact\n"));
  EXPECT_THAT(text, HasSubstr("temperature: 100 rows in, 25 samples out, 0 filled, 1 beyond"));
}

TEST(SummaryTest, TextFitsAnEightyColumnTerminal) {
  std::istringstream text(summaryText(summaryWith(6)));
  for (std::string line; std::getline(text, line);) EXPECT_LE(line.size(), 80U) << line;
}

}  // namespace
}  // namespace Zephly::monitor
