// SPDX-License-Identifier: MIT
// The body under the strap: heart, lungs, skin; and the strap's battery.

#include <simulator/battery_model.h>
#include <simulator/ecg_model.h>
#include <simulator/rates.h>
#include <simulator/respiration_model.h>
#include <simulator/temperature_model.h>
#include <zephly/dsp/leadoff_detector.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <vector>

namespace Zephly::simulator {
namespace {

using namespace std::chrono_literals;
using std::numbers::pi;

std::vector<float> ecgOf(std::uint64_t seed, double heartRate, int seconds) {
  EcgModel model(seed);
  std::vector<float> samples;
  double breath = 0;
  for (int i = 0; i < seconds * waveformRate; ++i) {
    breath = std::fmod(breath + 2 * pi * 0.25 / waveformRate, 2 * pi);
    samples.push_back(model.next(heartRate, breath, true));
  }
  return samples;
}

// Times of the R waves in seconds: the highest sample of each stretch above 0.5 mV.
std::vector<double> beatsIn(const std::vector<float>& ecg) {
  std::vector<double> beats;
  for (std::size_t i = 0; i < ecg.size(); ++i) {
    if (ecg[i] < 0.5F) continue;
    std::size_t top = i;
    for (; i < ecg.size() && ecg[i] >= 0.5F; ++i)
      if (ecg[i] > ecg[top]) top = i;
    beats.push_back(static_cast<double>(top) / waveformRate);
  }
  return beats;
}

// The amplitude of a cosine of `frequency` in `samples`.
double amplitudeAt(double frequency, const std::vector<float>& samples, double rate) {
  std::complex<double> sum = 0;
  for (std::size_t i = 0; i < samples.size(); ++i)
    sum += static_cast<double>(samples[i]) *
           std::polar(1.0, -2 * pi * frequency * static_cast<double>(i) / rate);
  return 2 * std::abs(sum) / static_cast<double>(samples.size());
}

TEST(EcgModelTest, BeatsAtTheHeartRateWithAnRWaveOfAboutOneMillivolt) {
  for (const double rate : {50.0, 64.0, 90.0, 140.0}) {
    const std::vector<float> ecg = ecgOf(1, rate, 120);
    EXPECT_NEAR(static_cast<double>(beatsIn(ecg).size()), 2 * rate, 0.02 * 2 * rate) << rate;
    const auto [least, most] = std::ranges::minmax(ecg);
    EXPECT_GT(most, 0.9F) << rate;
    EXPECT_LT(most, 1.4F) << rate;
    EXPECT_GT(least, -1.0F) << rate;
  }
}

TEST(EcgModelTest, HasItsWavesInOrder) {
  EcgModel model(4);
  std::vector<double> sum(36);
  std::vector<int> count(36);
  for (int i = 0; i < 200 * waveformRate; ++i) {
    const auto value = static_cast<double>(model.next(60, 0, true));
    const auto bin = static_cast<std::size_t>(
        std::clamp(std::floor((model.heartPhase() + pi) / (2 * pi) * 36), 0.0, 35.0));
    sum.at(bin) += value;
    ++count.at(bin);
  }
  // The mean signal at an angle in degrees.
  const auto at = [&](int degrees) {
    const auto bin = static_cast<std::size_t>((degrees + 180) / 10);
    return sum.at(bin) / count.at(bin);
  };
  const double baseline = at(-120);
  EXPECT_GT(at(-55), baseline + 0.1);  // P
  EXPECT_LT(at(-15), at(-35));         // Q
  EXPECT_GT(at(0), baseline + 0.6);    // R
  EXPECT_LT(at(20), baseline - 0.02);  // S
  EXPECT_GT(at(95), baseline + 0.2);   // T
}

TEST(EcgModelTest, HeartRateVariesInTheBandsOfBloodPressureAndBreathing) {
  const std::vector<double> beats = beatsIn(ecgOf(2, 60, 600));
  ASSERT_GT(beats.size(), 500U);
  std::vector<float> intervals;
  // Four values per second: the interval between beats that contains each time.
  std::size_t beat = 1;
  for (int quarter = 0; beats.front() + 0.25 * quarter < beats.back(); ++quarter) {
    const double time = beats.front() + 0.25 * quarter;
    while (beat + 1 < beats.size() && beats[beat] < time) ++beat;
    intervals.push_back(static_cast<float>(beats[beat] - beats[beat - 1] - 1));
  }
  const auto strongest = [&](double from, double to) {
    double most = 0;
    for (int i = 0; from + i / 1200.0 <= to; ++i)
      most = std::max(most, amplitudeAt(from + i / 1200.0, intervals, 4));
    return most;
  };
  const double background = strongest(0.15, 0.2);
  EXPECT_GT(strongest(0.08, 0.12), 3 * background);
  EXPECT_GT(strongest(0.23, 0.27), 3 * background);
}

TEST(EcgModelTest, CarriesMainsHum) {
  const std::vector<float> ecg = ecgOf(3, 64, 60);
  EXPECT_NEAR(amplitudeAt(50, ecg, waveformRate), 0.02, 0.005);
  EXPECT_LT(amplitudeAt(47.3, ecg, waveformRate), 0.002);
}

TEST(EcgModelTest, IsFlatWithElectrodesOffAndRecovers) {
  EcgModel model(5);
  const auto span = [&model](bool on) {
    float least = 9;
    float most = -9;
    for (int i = 0; i < 10 * waveformRate; ++i) {
      const float value = model.next(70, 0, on);
      least = std::min(least, value);
      most = std::max(most, value);
    }
    return most - least;
  };
  EXPECT_GT(span(true), 1.0F);
  EXPECT_LE(span(false), 0.001F);
  EXPECT_GT(span(true), 1.0F);
}

TEST(EcgModelTest, StaysInRangeForHoursOfAnyRate) {
  EcgModel model(6);
  Random random(6);
  for (int i = 0; i < 2 * 3600 * waveformRate / 10; ++i) {
    const float value = model.next(random.uniform(0, 400), random.uniform(0, 2 * pi), true);
    ASSERT_LT(std::abs(value), 2.42F);
  }
}

TEST(RespirationModelTest, KeepsContactInEveryWindowOfTheLeadoffDetector) {
  for (std::uint64_t seed = 0; seed < 5; ++seed) {
    for (const double rate : {6.0, 14.0, 30.0}) {
      RespirationModel model(seed);
      LeadoffDetector detector;
      double heart = 0;
      for (int i = 0; i < 300 * waveformRate; ++i) {
        heart = std::fmod(heart + 2 * pi * 1.1 / waveformRate, 2 * pi);
        const bool contact = detector.process(model.next(rate, heart, true));
        ASSERT_TRUE(contact || i < 69) << "seed " << seed << " sample " << i;
      }
    }
  }
}

TEST(RespirationModelTest, MovesByThreeTimesTheThresholdInEveryWindowWhenWorn) {
  RespirationModel model(9);
  std::vector<float> samples;
  samples.reserve(std::size_t{120} * waveformRate);
  for (int i = 0; i < 120 * waveformRate; ++i) samples.push_back(model.next(12, 0, true));
  for (std::size_t i = 70; i <= samples.size(); ++i) {
    const auto end = samples.begin() + static_cast<std::ptrdiff_t>(i);
    const auto [least, most] = std::minmax_element(end - 70, end);
    ASSERT_GT(*most - *least, 0.03F) << i;
  }
}

TEST(RespirationModelTest, IsFlatForTheLeadoffDetectorOffTheSkin) {
  RespirationModel model(1);
  LeadoffDetector detector;
  for (int i = 0; i < 10 * waveformRate; ++i) detector.process(model.next(14, 0, true));
  for (int i = 0; i < 300 * waveformRate; ++i) {
    const bool contact = detector.process(model.next(14, 0, false));
    // The window has no samples from the skin after 70 samples.
    ASSERT_FALSE(contact && i >= 69) << i;
  }
  for (int i = 0; i < 69; ++i) detector.process(model.next(14, 0, true));
  EXPECT_TRUE(detector.process(model.next(14, 0, true)));
}

TEST(RespirationModelTest, BreathesAtItsRate) {
  for (const double rate : {10.0, 14.0, 24.0}) {
    RespirationModel model(2);
    std::vector<float> samples;
    samples.reserve(std::size_t{120} * waveformRate);
    for (int i = 0; i < 120 * waveformRate; ++i) samples.push_back(model.next(rate, 0, true));
    const double breath = amplitudeAt(rate / 60, samples, waveformRate);
    EXPECT_GT(breath, 0.2);
    EXPECT_LT(breath, 0.4);
    EXPECT_LT(amplitudeAt(rate / 60 * 1.3, samples, waveformRate), breath / 4);
    EXPECT_NEAR(amplitudeAt(50, samples, waveformRate), mainsPickUp, 0.002);
    for (const float sample : samples) ASSERT_LT(std::abs(sample), 1.0F);
  }
}

TEST(RespirationModelTest, TheDepthChangesSmoothly) {
  RespirationModel model(3);
  float before = model.next(30, 0, true);
  for (int i = 0; i < 300 * waveformRate; ++i) {
    const float now = model.next(30, 0, true);
    ASSERT_LT(std::abs(now - before), 0.03F) << i;
    before = now;
  }
}

TEST(TemperatureModelTest, SkinAndAirDriftSlowlyAboutTheirMeans) {
  for (std::uint64_t seed = 0; seed < 5; ++seed) {
    TemperatureModel model(seed);
    Temperatures before = model.next(0, true);
    for (int i = 0; i < 3600; ++i) {
      const Temperatures now = model.next(0, true);
      ASSERT_NEAR(now.skin, 33, 3);
      ASSERT_NEAR(now.ambient, 23, 3);
      ASSERT_NEAR(now.skin, before.skin, 0.12);
      ASSERT_NEAR(now.ambient, before.ambient, 0.15);
      before = now;
    }
  }
}

TEST(TemperatureModelTest, TheSensorCoolsOffTheSkinAndWarmsUpOnIt) {
  TemperatureModel model(1);
  Temperatures now = model.next(0, true);
  const double warm = now.skin;
  for (int i = 0; i < 30; ++i) now = model.next(0, false);
  EXPECT_LT(now.skin, warm - 5);
  EXPECT_GT(now.skin, now.ambient + 2);
  for (int i = 0; i < 300; ++i) now = model.next(0, false);
  EXPECT_NEAR(now.skin, now.ambient, 0.3);
  for (int i = 0; i < 300; ++i) now = model.next(0, true);
  EXPECT_NEAR(now.skin, warm, 1.5);
}

TEST(TemperatureModelTest, EffortWarmsTheSkin) {
  TemperatureModel resting(2);
  TemperatureModel working(2);
  double rest = 0;
  double work = 0;
  for (int i = 0; i < 200; ++i) {
    rest = resting.next(0, true).skin;
    work = working.next(0.8, true).skin;
  }
  EXPECT_NEAR(work - rest, 0.8, 0.05);
}

TEST(BatteryModelTest, ReportsAtTheBeginningOnChangeAndEveryTenSeconds) {
  TrainingPlan plan;
  plan.charging = {{100s, 20s}};
  BatteryModel model(plan, 1);
  BatteryReport before = model.next();
  EXPECT_EQ(before.time, 0s);
  EXPECT_GE(before.percent, 70);
  EXPECT_LE(before.percent, 95);
  EXPECT_FALSE(before.charging);
  while (before.time < 10min) {
    const BatteryReport now = model.next();
    ASSERT_GT(now.time, before.time);
    ASSERT_LE(now.time - before.time, 10s);
    ASSERT_TRUE(now.time - before.time == 10s || now.percent != before.percent ||
                now.charging != before.charging);
    ASSERT_EQ(now.charging, plan.chargerIn(now.time));
    ASSERT_NEAR(now.percent * 10, std::round(now.percent * 10), 1e-9);
    before = now;
  }
}

TEST(BatteryModelTest, DrainsAndCharges) {
  TrainingPlan plan;
  plan.charging = {{1000s, 100s}};
  BatteryModel model(plan, 2);
  const double full = model.upcoming().percent;
  double beforeCharging = full;
  double afterCharging = 0;
  while (model.upcoming().time <= 1100s) {
    const BatteryReport report = model.next();
    if (report.time <= 1000s) beforeCharging = report.percent;
    afterCharging = report.percent;
  }
  EXPECT_NEAR(full - beforeCharging, 5, 0.11);
  EXPECT_NEAR(afterCharging - beforeCharging, 5, 0.11);
}

TEST(BatteryModelTest, StaysBetweenEmptyAndFull) {
  TrainingPlan charger;
  charger.charging = {{0s, 24h}};
  BatteryModel filled(charger, 3);
  BatteryModel emptied(TrainingPlan::quiet(), 3);
  while (filled.upcoming().time < 20h) ASSERT_LE(filled.next().percent, 100);
  while (emptied.upcoming().time < 20h) ASSERT_GE(emptied.next().percent, 0);
  EXPECT_EQ(filled.upcoming().percent, 100);
  EXPECT_EQ(emptied.upcoming().percent, 0);
}

}  // namespace
}  // namespace Zephly::simulator
