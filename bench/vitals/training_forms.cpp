// SPDX-License-Identifier: MIT
#include <bench/vitals/training_forms.h>

#include <bench/vitals/disturbed.h>
#include <bench/vitals/wfdb.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numbers>
#include <random>
#include <thread>
#include <utility>

namespace Zephly::bench {
namespace {

class Chance {
 public:
  explicit Chance(unsigned seed) : random_(seed) {}
  double between(double from, double to) { return from + (to - from) * uniform_(random_); }
  /// A factor, with an even distribution of its logarithm.
  double factor(double from, double to) { return std::exp(between(std::log(from), std::log(to))); }
  bool happens(double share) { return uniform_(random_) < share; }

 private:
  std::mt19937 random_;
  std::uniform_real_distribution<double> uniform_{0, 1};
};

// Another pair of electrodes, between the two recorded ones.
void mixLeads(MarkedRecording& recording, const std::vector<float>& second, Chance& chance) {
  const double angle = 2 * std::numbers::pi * chance.between(0, 1);
  for (std::size_t i = 0; i < recording.ecg.size(); ++i) {
    recording.ecg[i] = static_cast<float>(std::cos(angle) * static_cast<double>(recording.ecg[i]) +
                                          std::sin(angle) * static_cast<double>(second[i]));
  }
}

// P waves, QRS complexes and T waves of other sizes, measured from straight lines between the
// levels before the marked beats.
void scaleWaves(MarkedRecording& recording, Chance& chance) {
  struct Wave {
    double at, reach;  // s from the beat
    double gain;       // logarithm
  };
  const Wave waves[] = {{-0.165, 0.1, std::log(chance.factor(0.6, 5))},
                        {0, 0.08, std::log(chance.factor(0.5, 1.1))},
                        {0.28, 0.16, std::log(chance.factor(0.5, 3))}};
  const double rate = recording.rate;
  const auto size = std::ssize(recording.ecg);
  std::vector<double> gains(recording.ecg.size(), 0);
  std::vector<std::pair<std::ptrdiff_t, double>> levels;
  for (const MarkedBeat& beat : recording.beats) {
    for (const Wave& wave : waves) {
      const double centre = (beat.time + wave.at) * rate;
      const double reach = wave.reach * rate;
      const auto from = std::max<std::ptrdiff_t>(0, std::lround(centre - reach));
      const auto to = std::min<std::ptrdiff_t>(size - 1, std::lround(centre + reach));
      for (std::ptrdiff_t i = from; i <= to; ++i) {
        const double away = std::min(1.0, std::abs(static_cast<double>(i) - centre) / reach);
        gains[static_cast<std::size_t>(i)] +=
            wave.gain * 0.5 * (1 + std::cos(std::numbers::pi * away));
      }
    }
    const auto at = std::lround((beat.time - 0.07) * rate);
    const auto reach = std::lround(0.01 * rate);
    if (at - reach < 0 || at + reach >= size || (!levels.empty() && levels.back().first >= at)) {
      continue;
    }
    double sum = 0;
    for (auto i = at - reach; i <= at + reach; ++i) {
      sum += static_cast<double>(recording.ecg[static_cast<std::size_t>(i)]);
    }
    levels.emplace_back(at, sum / static_cast<double>(2 * reach + 1));
  }
  for (std::size_t pair = 0; pair + 1 < levels.size(); ++pair) {
    const auto [from, low] = levels[pair];
    const auto [to, high] = levels[pair + 1];
    for (auto i = from; i < to; ++i) {
      float& value = recording.ecg[static_cast<std::size_t>(i)];
      const double level =
          low + (high - low) * static_cast<double>(i - from) / static_cast<double>(to - from);
      value = static_cast<float>(level + std::exp(gains[static_cast<std::size_t>(i)]) *
                                             (static_cast<double>(value) - level));
    }
  }
}

struct FormKind {
  double mixed, waves, noise, tempo;  // how often
  double slowest, fastest;            // tempo
  float weight;
  double loudest = -2, quietest = 24;  // noise, dB
};
constexpr FormKind formKinds[] = {
    {0, 0, 0, 0, 1, 1, 1},
    // Other electrodes, noise, other tempos.
    {1, 0, 0, 0, 1, 1, 0.5},
    {1, 0, 0.3, 0.3, 0.8, 2.3, 0.5},
    {0.3, 0, 1, 0.3, 0.8, 2.3, 0.5},
    {0.3, 0, 0.3, 1, 0.8, 2.3, 0.5},
    {0.3, 0, 0.1, 1, 1.8, 2.4, 0.5},
    {1, 0, 0, 0, 1, 1, 0.5},
    // Other hearts: larger P and T waves.
    {0, 1, 0.2, 0.2, 0.8, 2.3, 0.5},
    {1, 1, 0.2, 0.2, 0.8, 2.3, 0.5},
    {0, 1, 0.2, 0.2, 0.8, 2.3, 0.5},
    // Strong noise.
    {0.3, 0, 1, 0.3, 0.8, 2.3, 0.5, -2, 7},
    {0, 0, 1, 0, 1, 1, 0.5, -3, 3},
    {0.3, 0, 1, 0.3, 0.8, 2.3, 0.5, 4, 14},
};

TrainingForm formOf(const TrainingRecord& record, const FormKind& kind, unsigned seed) {
  Chance chance(seed);
  MarkedRecording form = record.first;
  if (chance.happens(kind.mixed)) mixLeads(form, record.second, chance);
  if (chance.happens(kind.waves)) scaleWaves(form, chance);
  if (chance.happens(kind.noise)) {
    const double decibel = chance.between(kind.loudest, kind.quietest);
    const Noise noise = chance.happens(0.5) ? Noise::white : Noise::muscle;
    // Other noise than that of the measurements.
    form = noisy(form, noise, decibel, seed);
  }
  if (chance.happens(kind.tempo)) form = faster(form, chance.between(kind.slowest, kind.fastest));
  CandidateTrace trace(form);
  form.ecg.clear();
  form.ecg.shrink_to_fit();
  return {std::move(form), std::move(trace), kind.weight};
}

}  // namespace

std::vector<TrainingRecord> readTrainingRecords(const std::filesystem::path& folder) {
  std::vector<TrainingRecord> records;
  std::vector<MarkedRecording> second = readRecordings(folder, 1);
  for (MarkedRecording& recording : readRecordings(folder)) {
    const std::size_t number = records.size();
    records.push_back({std::move(recording), std::move(second[number].ecg)});
  }
  return records;
}

FormsOfRecords trainingForms(const std::vector<TrainingRecord>& records, unsigned seed) {
  FormsOfRecords forms(records.size());
  forEachIndex(records.size(), [&](std::size_t i) {
    const auto number = static_cast<unsigned>(std::stoul(records[i].first.name));
    unsigned kindNumber = 0;
    for (const FormKind& kind : formKinds) {
      forms[i].push_back(formOf(records[i], kind, seed * 1'000'000 + number * 100 + kindNumber++));
    }
  });
  return forms;
}

void forEachIndex(std::size_t count, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next = 0;
  const auto run = [&] {
    for (std::size_t i = next++; i < count; i = next++) work(i);
  };
  std::thread other(run);
  run();
  other.join();
}

}  // namespace Zephly::bench
