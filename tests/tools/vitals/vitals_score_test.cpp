// SPDX-License-Identifier: MIT
// The beats that the program writes, against those that cardiologists have marked. The reader of
// records and annotations is that of bench/vitals, not that of the program.

#include <tests/support/captures.h>
#include <tests/support/process.h>
#include <tests/vitals/synthetic_ecg.h>
#include <bench/vitals/run.h>
#include <bench/vitals/score.h>
#include <bench/vitals/wfdb.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <numbers>
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

constexpr double weakBeat = 33.1;  // s

// A minute of an ECG with a pause of four seconds. Behind it a weak beat precedes a strong one:
// while the detector learns its levels anew, only the larger one of the two is a beat. That is a
// rule, which does not depend on the net. Hum, because in silence everything would be a beat.
std::filesystem::path recordingWithAWeakBeat(const ScratchDirectory& scratch) {
  constexpr double strongBeat = weakBeat + 0.25;
  constexpr double perMinute = 75;
  std::vector<double> beats = Zephly::vitals::steadyBeats(perMinute, weakBeat - 3.8);
  for (const double at : Zephly::vitals::steadyBeats(perMinute, 60, strongBeat))
    beats.push_back(at);
  std::ofstream file(scratch / "weak.csv");
  file << "ecg\n";
  for (int i = 0; i < 60 * 360; ++i) {
    const double time = i / 360.0;
    file << Zephly::vitals::syntheticEcg(beats, perMinute, time) +
                0.4 * Zephly::vitals::syntheticEcg({weakBeat}, perMinute, time) +
                0.02 * std::sin(2 * std::numbers::pi * 8 * time)
         << '\n';
  }
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
  const std::string weak = recordingWithAWeakBeat(scratch).string();
  const auto found = [&](std::vector<std::string> arguments, const std::string& name) {
    arguments.insert(arguments.begin(), "vitals");
    arguments.insert(arguments.end(), {"--beats", (scratch / name).string()});
    const Finished run = runProgram(arguments);
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    return beatsNear(scratch / name, weakBeat);
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
