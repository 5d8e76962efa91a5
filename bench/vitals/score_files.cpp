// SPDX-License-Identifier: MIT
// Scores annotation files of other programs and prints a table in Markdown: for each folder FOUND
// with a file 101.atr for each record of FOLDER, a row with its NAME.
//   zephly_vitals_score FOLDER NAME=FOUND...

#include <bench/vitals/run.h>
#include <bench/vitals/score.h>
#include <bench/vitals/wfdb.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Zephly::bench;

std::vector<FoundBeat> annotatedBeats(const std::filesystem::path& folder,
                                      const MarkedRecording& recording) {
  std::vector<FoundBeat> found;
  for (const MarkedBeat& beat : readBeats(folder / (recording.name + ".atr"), recording.rate)) {
    found.push_back({.time = beat.time});
  }
  return found;
}

// Of processor time, for all records; 0 when it was not measured.
double secondsIn(const std::filesystem::path& folder) {
  double seconds = 0;
  std::ifstream(folder / "seconds") >> seconds;
  return seconds;
}

void row(const std::string& name, const Score& score, double nanoseconds) {
  std::printf("| %s | %lld | %lld | %.2f | %.2f | %.2f | %.2f | %.1f | ", name.c_str(),
              static_cast<long long>(score.wide.missed), static_cast<long long>(score.wide.extra),
              score.wide.sensitivity(), score.wide.predictivity(), score.wide.f1(),
              score.narrow.f1(), 1000 * score.jitter());
  if (nanoseconds > 0) {
    std::printf("%.0f |\n", nanoseconds);
  } else {
    std::printf("- |\n");
  }
}

void compare(const std::filesystem::path& folder, const std::vector<std::string>& named) {
  const std::vector<MarkedRecording> recordings = readRecordings(folder);
  if (recordings.empty()) throw std::runtime_error(folder.string() + ": no records (.hea) in it");
  double samples = 0;
  for (const MarkedRecording& recording : recordings) {
    samples += static_cast<double>(recording.ecg.size());
  }
  std::printf(
      "| detector | missed | extra | Se | +P | F1 | F1 ±50 ms | jitter, ms | ns a sample |\n"
      "|---|--:|--:|--:|--:|--:|--:|--:|--:|\n");
  Score own;
  double seconds = 0;
  for (const MarkedRecording& recording : recordings) {
    const Found found = findBeats(recording);
    own += score(recording, found.beats);
    seconds += found.seconds;
  }
  row("Zephly::vitals", own, 1e9 * seconds / samples);
  for (const std::string& one : named) {
    const std::size_t mark = one.find('=');
    if (mark == std::string::npos) throw std::runtime_error("NAME=FOUND expected, found " + one);
    const std::filesystem::path found = one.substr(mark + 1);
    Score all;
    for (const MarkedRecording& recording : recordings) {
      all += score(recording, annotatedBeats(found, recording));
    }
    row(one.substr(0, mark), all, 1e9 * secondsIn(found) / samples);
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) {
    std::fprintf(stderr, "usage: zephly_vitals_score FOLDER NAME=FOUND...\n");
    return 2;
  }
  try {
    compare(arguments[1], {arguments + 2, arguments + count});
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "error: %s\n", problem.what());
    return 1;
  }
  return 0;
}
