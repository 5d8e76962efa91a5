// SPDX-License-Identifier: MIT
// The processor time of all vitals for a day at 500 samples a second, as a table in Markdown. The
// signals are ten minutes of the simulated strap, again and again.

#include <tests/support/breathing_trial.h>
#include <vitals/hrv.h>
#include <vitals/vitals.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

using namespace Zephly;
using namespace std::chrono_literals;

constexpr int repetitions = 144;
constexpr std::chrono::minutes period{10};

double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

class Counter final : public vitals::Receiver {
 public:
  void beat(const vitals::Beat& beat) override { beats.push_back(beat); }
  void breath(const vitals::Breath&) override { ++breaths; }
  void second(const vitals::Second&) override { ++seconds; }

  std::vector<vitals::Beat> beats;
  std::size_t breaths = 0;
  std::size_t seconds = 0;
};

void row(const char* what, double seconds, std::size_t samples) {
  std::printf("| %s | %.2f | ", what, seconds);
  if (samples > 0) {
    std::printf("%.1f |\n", 1e9 * seconds / static_cast<double>(samples));
  } else {
    std::printf("- |\n");
  }
}

// Returns the beats.
std::vector<vitals::Beat> measure(const char* what, const StrapSignals& signals, bool ecg,
                                  bool respiration) {
  Counter counter;
  vitals::Vitals vitals(
      {.ecgRate = ecg ? 500.0 : 0.0, .respirationRate = respiration ? 500.0 : 0.0}, counter);
  std::size_t samples = 0;
  const double begin = processorSeconds();
  for (int i = 0; i < repetitions; ++i) {
    const vitals::Time offset = i * period;
    for (std::size_t k = 0; k < signals.ecg.size(); ++k) {
      if (ecg) vitals.ecg(signals.ecg[k].first + offset, signals.ecg[k].second);
      if (respiration && k < signals.respiration.size()) {
        vitals.respiration(signals.respiration[k].first + offset, signals.respiration[k].second);
      }
    }
    samples += signals.ecg.size();
  }
  vitals.finish();
  row(what, processorSeconds() - begin, samples);
  return counter.beats;
}

}  // namespace

int main() {
  simulator::Wearer wearer;
  wearer.irregularity = 0.1;
  wearer.ectopicShare = 0.01;
  simulator::Strap strap({.plan = simulator::TrainingPlan::quiet(), .wearer = wearer});
  const StrapSignals signals = strapSignals(strap, period);
  std::printf("| a day at 500 samples a second | seconds | ns a sample |\n|---|--:|--:|\n");
  const std::vector<vitals::Beat> beats = measure("beats of the ECG", signals, true, false);
  measure("breathing of the impedance", signals, false, true);
  measure("both, and breathing from the ECG", signals, true, true);
  const double begin = processorSeconds();
  const vitals::Hrv hrv = vitals::hrvOf(beats);
  row("HRV of all beats", processorSeconds() - begin, 0);
  std::printf("\n%zu beats; HRV of %zu intervals.\n", beats.size(), hrv.nn);
  return 0;
}
