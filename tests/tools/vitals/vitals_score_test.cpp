// SPDX-License-Identifier: MIT
// The beats that the program writes, against those that cardiologists have marked. The reader of
// records and annotations is that of bench/vitals, not that of the program.

#include <tests/support/captures.h>
#include <tests/support/process.h>
#include <bench/vitals/run.h>
#include <bench/vitals/score.h>
#include <bench/vitals/wfdb.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using captures::ScratchDirectory;
using namespace Zephly::bench;

// Three minutes each; the last two with many ventricular beats.
class VitalsScoreTest : public testing::TestWithParam<std::string> {
 protected:
  static std::filesystem::path marked() {
    return std::filesystem::path(ZEPHLY_RECORDINGS "/mitdb") / (GetParam() + ".hea");
  }

  ScratchDirectory scratch_;
};

// The program's annotations in place of those of the record.
std::vector<FoundBeat> annotatedBeats(const std::filesystem::path& marked,
                                      const ScratchDirectory& scratch) {
  for (const char* ending : {".hea", ".dat"}) {
    auto file = marked;
    file.replace_extension(ending);
    std::filesystem::copy_file(file, scratch / file.filename().string());
  }
  const std::string name = marked.stem().string();
  const Finished run = runProgram(
      {"vitals", (scratch / name).string(), "--annotations", (scratch / (name + ".atr")).string()});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  std::vector<FoundBeat> found;
  for (const MarkedBeat& beat : readRecording(scratch / (name + ".hea")).beats) {
    found.push_back({.time = beat.time});
  }
  return found;
}

std::vector<FoundBeat> beatsIn(const std::filesystem::path& csv) {
  const captures::Bytes bytes = captures::contentOf(csv);
  std::istringstream file(std::string(bytes.begin(), bytes.end()));
  std::vector<FoundBeat> found;
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    if (line.find(",artefact,") == std::string::npos) found.push_back({.time = std::stod(line)});
  }
  return found;
}

std::vector<FoundBeat> listedBeats(const std::filesystem::path& marked,
                                   const ScratchDirectory& scratch) {
  const Finished run =
      runProgram({"vitals", marked.string(), "--beats", (scratch / "beats.csv").string()});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  return beatsIn(scratch / "beats.csv");
}

void expectTheScoreOfTheDetector(const std::filesystem::path& marked,
                                 const std::vector<FoundBeat>& found) {
  const MarkedRecording recording = readRecording(marked);
  const Score ofProgram = score(recording, found);
  const Score ofDetector = score(recording, findBeats(recording).beats);
  EXPECT_EQ(ofProgram.wide.hits, ofDetector.wide.hits);
  EXPECT_EQ(ofProgram.wide.missed, ofDetector.wide.missed);
  EXPECT_EQ(ofProgram.wide.extra, ofDetector.wide.extra);
  EXPECT_NEAR(static_cast<double>(ofProgram.narrow.hits),
              static_cast<double>(ofDetector.narrow.hits), 1);
  // An annotation has the resolution of a sample.
  EXPECT_NEAR(ofProgram.jitter(), ofDetector.jitter(), 0.5 / 360);
  EXPECT_GT(ofProgram.wide.hits, 150);
  EXPECT_GE(ofProgram.wide.sensitivity(), 99);
  EXPECT_GE(ofProgram.wide.predictivity(), 99);
}

TEST_P(VitalsScoreTest, AnnotationsScoreAsTheDetector) {
  expectTheScoreOfTheDetector(marked(), annotatedBeats(marked(), scratch_));
}

TEST_P(VitalsScoreTest, ListedBeatsScoreAsTheDetector) {
  expectTheScoreOfTheDetector(marked(), listedBeats(marked(), scratch_));
}

// BioSig 2 takes the first sample for number 1.
TEST(VitalsScoreAnnotationsTest, AnotherProgramReadsThem) {
  const ScratchDirectory scratch;
  for (const char* ending : {".hea", ".dat"}) {
    std::filesystem::copy_file(std::string(ZEPHLY_RECORDINGS "/mitdb/208") + ending,
                               scratch / (std::string("208") + ending));
  }
  const std::string header = (scratch / "208.hea").string();
  const Finished run =
      runProgram({"vitals", header, "--annotations", (scratch / "208.atr").string(), "--beats",
                  (scratch / "beats.csv").string()});
  ASSERT_EQ(run.exitCode, 0) << run.errors;
  const Finished read = runOther(ZEPHLY_SAVE2GDF, {"-JSON", header});
  ASSERT_EQ(read.exitCode, 0) << read.errors;
  std::vector<double> times;
  const std::string mark = "\"POS\"\t: ";
  for (auto at = read.output.find(mark); at != std::string::npos;
       at = read.output.find(mark, at + 1)) {
    times.push_back(std::stod(read.output.substr(at + mark.size())));
  }
  const std::vector<FoundBeat> beats = beatsIn(scratch / "beats.csv");
  ASSERT_EQ(times.size(), beats.size());
  EXPECT_GT(times.size(), 250U);
  const double first = std::round((beats[0].time - times[0]) * 360);
  EXPECT_TRUE(first == 0 || first == 1) << first;
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_NEAR(times[i] + first / 360, beats[i].time, 0.5 / 360 + 1e-6) << i;
  }
}

// A minute of a record in which one beat has 0.15 of its height.
std::filesystem::path recordingWithAWeakBeat(const ScratchDirectory& scratch, double& time) {
  const MarkedRecording recording = readRecording(ZEPHLY_RECORDINGS "/mitdb/101.hea");
  const auto weak = std::find_if(recording.beats.begin(), recording.beats.end(),
                                 [](const MarkedBeat& beat) { return beat.time > 30; });
  time = weak->time;
  std::vector<float> samples(recording.ecg.begin(), recording.ecg.begin() + 60 * 360);
  constexpr std::size_t half = 50;
  const auto begin = static_cast<std::size_t>(time * recording.rate) - half;
  const float first = samples[begin];
  const float slope = (samples[begin + 2 * half] - first) / (2 * half);
  for (std::size_t i = 0; i < 2 * half; ++i) {
    const float level = first + slope * static_cast<float>(i);
    samples[begin + i] = level + 0.13F * (samples[begin + i] - level);
  }
  std::ofstream file(scratch / "weak.csv");
  file << "ecg\n";
  for (const float sample : samples) file << sample << '\n';
  return scratch / "weak.csv";
}

// The rows near a time.
std::vector<std::string> beatsNear(const std::filesystem::path& file, double time) {
  const captures::Bytes bytes = captures::contentOf(file);
  std::istringstream rows(std::string(bytes.begin(), bytes.end()));
  std::vector<std::string> near;
  std::string row;
  std::getline(rows, row);
  while (std::getline(rows, row)) {
    if (std::abs(std::stod(row) - time) < 0.1) near.push_back(row);
  }
  return near;
}

TEST(VitalsScoreSearchBackTest, ReportsAWeakBeatLateOnRequest) {
  const ScratchDirectory scratch;
  double time = 0;
  const std::string weak = recordingWithAWeakBeat(scratch, time).string();
  const auto found = [&](std::vector<std::string> arguments, const std::string& name) {
    arguments.insert(arguments.begin(), "vitals");
    arguments.insert(arguments.end(), {"--beats", (scratch / name).string()});
    const Finished run = runProgram(arguments);
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    return beatsNear(scratch / name, time);
  };
  EXPECT_TRUE(found({weak, "--rate", "360"}, "a.csv").empty());
  const auto late = found({weak, "--rate", "360", "--search-back"}, "b.csv");
  ASSERT_EQ(late.size(), 1U);
  EXPECT_TRUE(late[0].ends_with(",1")) << late[0];

  // As a capture of a strap that plays the recording.
  const std::string capture = (scratch / "weak.zcap").string();
  ASSERT_EQ(runProgram({"record", capture, "--simulated", "--recording", weak, "--rate", "360",
                        "--duration", "62", "--speed", "1000"})
                .exitCode,
            0);
  const auto lateBeats = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"vitals", capture, "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const std::string output = runProgram(arguments).output;
    return output.substr(output.find("\"late\":"), 8);
  };
  EXPECT_EQ(lateBeats({}), "\"late\":0");
  EXPECT_EQ(lateBeats({"--search-back"}), "\"late\":1");
}

INSTANTIATE_TEST_SUITE_P(Records, VitalsScoreTest, testing::Values("101", "208", "223"),
                         [](const auto& instance) { return "Of" + instance.param; });

}  // namespace
