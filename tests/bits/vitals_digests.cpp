// SPDX-License-Identifier: MIT
#include <tests/bits/digest.h>
#include <tests/support/synthetic_wearer.h>
#include <vitals/hrv.h>
#include <vitals/vitals.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace bits {

namespace {

using namespace std::chrono_literals;
using namespace Zephly::vitals;

using Samples = std::vector<SyntheticWearer::Sample>;

class Digests final : public Receiver {
 public:
  void beat(const Beat& beat) override {
    beats_.add(static_cast<double>(beat.time.count()));
    beats_.add(beat.rr.value_or(-1));
    beats_.add(beat.amplitude);
    beats_.add(beat.quality);
    beats_.add(static_cast<double>(beat.kind));
    beats_.add(beat.late ? 1 : 0);
    allBeats_.push_back(beat);
  }
  void breath(const Breath& breath) override {
    breaths_.add(static_cast<double>(breath.time.count()));
    breaths_.add(breath.duration.value_or(-1));
    breaths_.add(breath.depth);
    breaths_.add(breath.quality);
    breaths_.add(breath.derived ? 1 : 0);
    ++breathCount_;
  }
  void second(const Second& second) override {
    seconds_.add(static_cast<double>(second.time.count()));
    seconds_.add(second.heartRate.value_or(-1));
    seconds_.add(second.heartRateQuality);
    seconds_.add(second.ecgQuality);
    seconds_.add(second.breathingRate.value_or(-1));
    seconds_.add(second.breathingQuality);
    seconds_.add(second.breathingDerived ? 1 : 0);
    seconds_.add(second.respirationQuality);
    seconds_.add(second.contact ? (*second.contact ? 1 : 0) : -1);
    ++secondCount_;
  }

  // "Beat wearer, pieces of 6". Nothing for a signal without results: that would be the same digest
  // in every build.
  void print(const std::string& input, const std::string& cut) {
    const auto name = [&](const char* what) { return std::string(what) + ' ' + input + ' ' + cut; };
    if (!allBeats_.empty()) beats_.print(name("Beat").c_str());
    if (breathCount_ > 0) breaths_.print(name("Breath").c_str());
    if (secondCount_ > 0) seconds_.print(name("Second").c_str());
    if (allBeats_.size() < 100) return;
    Digest digest;
    const Hrv hrv = hrvOf(allBeats_);
    for (const auto& number : {hrv.meanNN, hrv.sdnn, hrv.rmssd, hrv.pnn50, hrv.sd1, hrv.sd2, hrv.lf,
                               hrv.hf, hrv.lfOverHf}) {
      digest.add(number.value_or(-1));
    }
    digest.add(hrv.share);
    digest.print(name("Hrv").c_str());
  }

 private:
  Digest beats_;
  Digest breaths_;
  Digest seconds_;
  std::vector<Beat> allBeats_;
  int breathCount_ = 0;
  int secondCount_ = 0;
};

// Ten minutes with rests, ectopic intervals of the heart by noise, a gap of 3 s and one of an hour,
// and 20 s without contact.
Samples wearerSamples() {
  SyntheticWearer wearer(500);
  Samples samples;
  for (int i = 0; i < 600 * 500; ++i) {
    auto sample = wearer.next();
    if (sample.time > 200s && sample.time < 203s) continue;
    if (sample.time > 400s) sample.time += 1h;
    samples.push_back(sample);
  }
  return samples;
}

// The columns ECG and RSP. Reading text gives the same number everywhere.
Samples recordingSamples(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  Samples samples;
  while (std::getline(file, line)) {
    SyntheticWearer::Sample sample;
    sample.time = static_cast<std::int64_t>(samples.size()) * 10ms;
    sample.ecg = std::strtof(line.c_str(), nullptr);
    sample.respiration = std::strtof(line.c_str() + line.rfind(',') + 1, nullptr);
    samples.push_back(sample);
  }
  if (samples.empty()) {
    std::fprintf(stderr, "digest: cannot read %s\n", path.c_str());
    std::exit(1);
  }
  return samples;
}

// Where the piece from `begin` on ends: at a gap at the latest, because the streams may not be
// further apart than 5 s.
std::size_t endOfPiece(const Samples& samples, std::size_t begin, std::size_t piece) {
  std::size_t end = begin + 1;
  while (end < samples.size() && end < begin + piece &&
         samples[end].time - samples[end - 1].time < 100ms) {
    ++end;
  }
  return end;
}

// Pieces of one stream, then of the other, with the contact before both.
void digestPieces(const std::string& input, const Samples& samples, double rate,
                  std::size_t piece) {
  Digests digests;
  Vitals vitals({.ecgRate = rate, .respirationRate = rate}, digests);
  bool on = false;
  for (std::size_t begin = 0; begin < samples.size();) {
    const std::size_t end = endOfPiece(samples, begin, piece);
    for (std::size_t i = begin; i < end; ++i) {
      const bool contact = samples[i].time < 100s || samples[i].time > 120s;
      if (contact != on) vitals.contact(samples[i].time, contact);
      on = contact;
    }
    for (std::size_t i = begin; i < end; ++i) vitals.ecg(samples[i].time, samples[i].ecg);
    for (std::size_t i = begin; i < end; ++i) {
      vitals.respiration(samples[i].time, samples[i].respiration);
    }
    begin = end;
  }
  vitals.finish();
  digests.print(input, "pieces of " + std::to_string(piece));
}

}  // namespace

void digestVitals(const std::string& recording) {
  const Samples wearer = wearerSamples();
  for (const std::size_t piece : {1U, 6U, 500U, 2500U}) digestPieces("wearer", wearer, 500, piece);
  const Samples recorded = recordingSamples(recording);
  for (const std::size_t piece : {1U, 6U, 500U}) {
    digestPieces("recording", recorded, 100, piece);
  }
}

}  // namespace bits
