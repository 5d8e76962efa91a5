// SPDX-License-Identifier: MIT
// Scores the beat detector on a folder of annotated recordings and prints tables in Markdown.

#include <bench/vitals/disturbed.h>
#include <bench/vitals/run.h>
#include <bench/vitals/score.h>
#include <bench/vitals/wfdb.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace Zephly::bench;

constexpr double cleanF1 = 99.95;  // of a recording to which noise is added
constexpr double trusted = 0.5;    // quality

struct Result {
  Score score;
  HeartRates rates;
  double delay = 0;    // s
  double seconds = 0;  // of processor time
  std::size_t samples = 0;
  double quality = 0;  // summed over the beats found
  std::int64_t found = 0;
  std::int64_t trustedFound = 0;
  Count trustedCount;  // only beats with quality

  Result& operator+=(const Result& other) {
    score += other.score;
    rates += other.rates;
    delay = std::max(delay, other.delay);
    seconds += other.seconds;
    samples += other.samples;
    quality += other.quality;
    found += other.found;
    trustedFound += other.trustedFound;
    trustedCount += other.trustedCount;
    return *this;
  }
  double nanoseconds() const { return 1e9 * seconds / static_cast<double>(samples); }
};

Result judge(const MarkedRecording& recording) {
  const Found found = findBeats(recording);
  Result result;
  result.score = score(recording, found.beats);
  result.rates = heartRates(recording, found.beats);
  result.delay = found.longestDelay;
  result.seconds = found.seconds;
  result.samples = recording.ecg.size();
  std::vector<FoundBeat> good;
  for (const FoundBeat& beat : found.beats) {
    result.quality += beat.quality;
    if (beat.quality >= trusted) good.push_back(beat);
  }
  result.found = std::ssize(found.beats);
  result.trustedFound = std::ssize(good);
  result.trustedCount = score(recording, good).wide;
  return result;
}

using Change = std::function<MarkedRecording(const MarkedRecording&)>;

Result judgeAll(const std::vector<MarkedRecording>& recordings, const Change& change) {
  Result all;
  for (const MarkedRecording& recording : recordings) all += judge(change(recording));
  return all;
}

void row(const std::string& name, const Result& result) {
  const Score& score = result.score;
  const double beats = static_cast<double>(std::max<std::int64_t>(result.found, 1));
  std::printf("| %s | %.2f | %.2f | %.2f | %.2f | %.1f | %.2f | %.1f | %.2f |\n", name.c_str(),
              score.wide.sensitivity(), score.wide.predictivity(), score.wide.f1(),
              score.narrow.f1(), 1000 * score.jitter(), result.quality / beats,
              100 * static_cast<double>(result.trustedFound) / beats,
              result.trustedCount.predictivity());
}

void changesTable(const std::vector<MarkedRecording>& all,
                  const std::vector<MarkedRecording>& clean) {
  std::printf(
      "\n| recordings | Se | +P | F1 | F1 ±50 ms | jitter, ms | mean quality | quality ≥ 0.5, %% | "
      "+P of these |\n|---|--:|--:|--:|--:|--:|--:|--:|--:|\n");
  const auto add = [](const std::string& name, const std::vector<MarkedRecording>& recordings,
                      const Change& change) {
    row(name, judgeAll(recordings, change));
    std::fflush(stdout);
  };
  for (const double factor : {2.0, 2.2}) {
    char name[40];
    std::snprintf(name, sizeof name, "%g times the speed", factor);
    add(name, all, [factor](const MarkedRecording& each) { return faster(each, factor); });
  }
  const std::string few = " (" + std::to_string(clean.size()) + " recordings)";
  for (const auto& [kind, what] :
       {std::pair{Noise::white, "white noise"}, std::pair{Noise::muscle, "muscle noise"},
        std::pair{Noise::wander, "wander"}}) {
    for (const int decibel : {12, 6, 0, -6}) {
      if (kind == Noise::wander && decibel > 0) continue;
      add(std::string(what) + ", " + std::to_string(decibel) + " dB" + few, clean,
          [kind, decibel](const MarkedRecording& each) { return noisy(each, kind, decibel); });
    }
  }
  for (const int rate : {100, 125, 200, 250, 500, 1000}) {
    add(std::to_string(rate) + " Hz", all,
        [rate](const MarkedRecording& each) { return resampled(each, rate); });
  }
  for (const float gain : {0.05F, 20.0F, -1.0F}) {
    char name[40];
    std::snprintf(name, sizeof name, "times %g", static_cast<double>(gain));
    add(gain < 0 ? "inverted" : name, all,
        [gain](const MarkedRecording& each) { return amplified(each, gain); });
  }
}

void measure(const std::string& folder) {
  const std::vector<MarkedRecording> recordings = readRecordings(folder);
  if (recordings.empty()) throw std::runtime_error(folder + ": no records (.hea) in it");
  Result all;
  std::vector<MarkedRecording> clean;
  std::printf("%s", scoreTableHead());
  for (const MarkedRecording& recording : recordings) {
    const Result result = judge(recording);
    std::printf("%s", scoreTableRow(recording.name, result.score).c_str());
    if (result.score.wide.f1() >= cleanF1) clean.push_back(recording);
    all += result;
  }
  std::printf("%s", scoreTableRow("all", all.score).c_str());
  std::printf("\n| | |\n|---|--:|\n");
  std::printf("| longest delay from R peak to report | %.3f s |\n", all.delay);
  std::printf("| cost of a sample | %.0f ns |\n", all.nanoseconds());
  std::printf("| windows of 10 s with a heart rate | %.1f %% |\n",
              100.0 * all.rates.answered / std::max(all.rates.windows, 1));
  std::printf("| mean absolute error of the heart rate | %.2f /min |\n",
              all.rates.error / std::max(all.rates.answered, 1));
  std::printf("| ventricular beats called `ectopic` | %.1f %% |\n",
              all.score.ventricular.sensitivity());
  std::printf("| premature beats from above the ventricles called `ectopic` | %.1f %% |\n",
              all.score.supraventricular.sensitivity());
  std::printf("| of those called `ectopic`, marked as other than normal | %.1f %% |\n",
              all.score.ectopic.predictivity());
  changesTable(recordings, clean);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: zephly_vitals_bench FOLDER\n");
    return 2;
  }
  try {
    measure(arguments[1]);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "error: %s\n", problem.what());
    return 1;
  }
  return 0;
}
