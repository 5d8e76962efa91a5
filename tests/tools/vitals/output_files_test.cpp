// SPDX-License-Identifier: MIT
#include <tools/vitals/output_files.h>

#include <tests/support/captures.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

using namespace std::chrono_literals;
using namespace Zephly::recorders;
using captures::ScratchDirectory;
using testing::HasSubstr;
using Zephly::vitals::Beat;
using Zephly::vitals::BeatClass;
using Zephly::vitals::Breath;
using Zephly::vitals::Second;

constexpr AnnotationClock recordClock{.rate = 100, .isOfTheRecord = true};

Beat beatAt(Zephly::vitals::Time time, std::optional<double> rr = std::nullopt,
            BeatClass kind = BeatClass::normal) {
  Beat beat;
  beat.time = time;
  beat.rr = rr;
  beat.kind = kind;
  return beat;
}

std::string textOf(const std::filesystem::path& file) {
  const captures::Bytes bytes = captures::contentOf(file);
  return {bytes.begin(), bytes.end()};
}

std::string refusal(const OutputOptions& options,
                    const std::vector<std::filesystem::path>& inputs = {}) {
  try {
    const OutputFiles files(options, inputs, recordClock);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

std::size_t entriesOf(const std::filesystem::path& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(OutputFilesTest, WritesBeats) {
  const ScratchDirectory scratch;
  OutputFiles files({.beats = scratch / "beats.csv"}, {}, recordClock);
  files.beat({.time = 1'500ms, .rr = std::nullopt, .amplitude = 1.25, .quality = 0.98765});
  files.beat({.time = 2'333'333'333ns,
              .rr = 0.833333333,
              .amplitude = -0.1F,
              .quality = 1,
              .kind = BeatClass::ectopic,
              .late = true});
  const auto written = files.publish();
  EXPECT_EQ(textOf(scratch / "beats.csv"),
            "time_s,rr_s,class,quality,amplitude,late\n"
            "1.500000000,,normal,0.988,1.25,0\n"
            "2.333333333,0.833333,ectopic,1.000,-0.1,1\n");
  ASSERT_EQ(written.size(), 1U);
  EXPECT_EQ(written[0].rows, 2U);
}

TEST(OutputFilesTest, WritesBreaths) {
  const ScratchDirectory scratch;
  OutputFiles files({.breaths = scratch / "breaths.csv"}, {}, recordClock);
  files.breath({.time = 1s, .duration = 3.75, .depth = 1.1, .quality = 0.5, .derived = true});
  files.publish();
  EXPECT_EQ(textOf(scratch / "breaths.csv"),
            "time_s,duration_s,depth,quality,derived\n1.000000000,3.750000,1.100,0.500,1\n");
}

TEST(OutputFilesTest, WritesSecondsWithEmptyCellsForWhatIsNotKnown) {
  const ScratchDirectory scratch;
  OutputFiles files({.vitals = scratch / "vitals.csv"}, {}, recordClock);
  Second unknown;
  unknown.time = 1s;
  files.second(unknown);
  files.second({.time = 2s,
                .heartRate = 61.239,
                .heartRateQuality = 0.9,
                .ecgQuality = 0.8,
                .breathingRate = 14.5,
                .breathingQuality = 0.7,
                .breathingDerived = true,
                .respirationQuality = 0.6,
                .contact = true});
  files.publish();
  EXPECT_EQ(textOf(scratch / "vitals.csv"),
            "time_s,heart_rate_per_min,heart_rate_quality,ecg_quality,breathing_rate_per_min,"
            "breathing_quality,breathing_derived,respiration_quality,contact\n"
            "1.000000000,,0.000,0.000,,0.000,0,0.000,\n"
            "2.000000000,61.24,0.900,0.800,14.50,0.700,1,0.600,1\n");
}

// Artefacts are no beats, and an interval that is not known is left out.
TEST(OutputFilesTest, WritesIntervals) {
  const ScratchDirectory scratch;
  OutputFiles files({.rr = scratch / "rr.txt"}, {}, recordClock);
  files.beat(beatAt(1s));
  files.beat(beatAt(1'812'400us, 0.8124));
  files.beat(beatAt(2s, 0.1876, BeatClass::artefact));
  files.beat(beatAt(2'600ms, 0.7876, BeatClass::ectopic));
  const auto written = files.publish();
  ASSERT_EQ(written.size(), 1U);
  EXPECT_EQ(written[0].bytes, std::filesystem::file_size(scratch / "rr.txt"));
  EXPECT_EQ(written[0].span->to, 2'600ms);
  EXPECT_EQ(textOf(scratch / "rr.txt"), "1.812\t0.812\n2.600\t0.788\n");
}

TEST(OutputFilesTest, CountsAnnotationsFromTheFirstSample) {
  const ScratchDirectory scratch;
  OutputFiles files({.annotations = scratch / "a.zep"}, {},
                    {.rate = 100, .isOfTheRecord = true, .begin = 5s});
  files.beat(beatAt(5'030ms));
  files.publish();
  EXPECT_EQ(textOf(scratch / "a.zep"), std::string("\x03\x04\0\0", 4));
}

TEST(OutputFilesTest, LeavesNothingWithoutPublishing) {
  const ScratchDirectory scratch;
  {
    OutputFiles files({.beats = scratch / "b",
                       .breaths = scratch / "c",
                       .vitals = scratch / "d",
                       .rr = scratch / "e",
                       .annotations = scratch / "f"},
                      {}, recordClock);
    files.beat(beatAt(1s));
    EXPECT_EQ(entriesOf(scratch.path()), 5U);
    EXPECT_FALSE(std::filesystem::exists(scratch / "b"));
  }
  EXPECT_EQ(entriesOf(scratch.path()), 0U);
}

TEST(OutputFilesTest, RefusesAFileThatIsThere) {
  const ScratchDirectory scratch;
  static_cast<void>(scratch.file("b", {1, 2, 3}));
  EXPECT_THAT(refusal({.beats = scratch / "b"}), HasSubstr("it exists already (see --force)"));
  EXPECT_EQ(captures::contentOf(scratch / "b").size(), 3U);
  OutputFiles files({.beats = scratch / "b", .existing = Zephly::exporting::Existing::replaced}, {},
                    recordClock);
  files.publish();
  EXPECT_THAT(textOf(scratch / "b"), HasSubstr("time_s"));
}

TEST(OutputFilesTest, RefusesItsInputs) {
  const ScratchDirectory scratch;
  const auto input = scratch.file("a.dat", {1, 2, 3});
  std::filesystem::create_hard_link(input, scratch / "b");
  for (const char* name : {"a.dat", "b"}) {
    EXPECT_THAT(refusal({.rr = scratch / name, .existing = Zephly::exporting::Existing::replaced},
                        {scratch / "a.hea", input}),
                HasSubstr("it is the input"))
        << name;
  }
  EXPECT_EQ(captures::contentOf(input).size(), 3U);
}

TEST(OutputFilesTest, RefusesOneNameForTwo) {
  const ScratchDirectory scratch;
  EXPECT_THAT(refusal({.beats = scratch / "a", .annotations = scratch / "." / "a"}),
              HasSubstr("--beats and --annotations name one file"));
  static_cast<void>(scratch.file("a", {}));
  std::filesystem::create_symlink(scratch / "a", scratch / "b");
  EXPECT_THAT(refusal({.breaths = scratch / "a", .rr = scratch / "b"}),
              HasSubstr("--breaths and --rr name one file"));
}

}  // namespace
