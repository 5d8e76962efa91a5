// SPDX-License-Identifier: MIT
// The beats that the program writes, against those that cardiologists have marked. The reader of
// records and annotations is that of bench/vitals, not that of the program.

#include <tests/support/captures.h>
#include <tests/support/process.h>
#include <bench/vitals/run.h>
#include <bench/vitals/score.h>
#include <bench/vitals/wfdb.h>

#include <gtest/gtest.h>

#include <filesystem>
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

std::vector<FoundBeat> listedBeats(const std::filesystem::path& marked,
                                   const ScratchDirectory& scratch) {
  const Finished run =
      runProgram({"vitals", marked.string(), "--beats", (scratch / "beats.csv").string()});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  const captures::Bytes bytes = captures::contentOf(scratch / "beats.csv");
  std::istringstream file(std::string(bytes.begin(), bytes.end()));
  std::vector<FoundBeat> found;
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    if (line.find(",artefact,") == std::string::npos) found.push_back({.time = std::stod(line)});
  }
  return found;
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

INSTANTIATE_TEST_SUITE_P(Records, VitalsScoreTest, testing::Values("101", "208", "223"),
                         [](const auto& instance) { return "Of" + instance.param; });

}  // namespace
