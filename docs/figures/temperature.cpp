// SPDX-License-Identifier: MIT
#include <docs/figures/figures.h>

#include <zephly/dsp/body_temperature_estimator.h>

#include <docs/figures/table.h>

namespace figures {

namespace {

constexpr int longestWindow = 20;  // readings

// The estimate for constant temperatures.
double settled(double skin, double ambient) {
  Zephly::BodyTemperatureEstimator estimator;
  float estimate = 0;
  for (int n = 0; n < longestWindow; ++n) {
    estimate = estimator.process(static_cast<float>(skin), static_cast<float>(ambient));
  }
  return static_cast<double>(estimate);
}

void writeSettled(const std::filesystem::path& folder) {
  Table table(folder, "temperature_settled",
              {"skin_C", "at_ambient_15_C", "at_ambient_20_C", "at_ambient_25_C"});
  for (int tenths = 260; tenths <= 400; ++tenths) {
    const double skin = tenths / 10.0;
    table.row({skin, settled(skin, 15), settled(skin, 20), settled(skin, 25)});
  }
}

void writeTemperatureStep(const std::filesystem::path& folder) {
  Zephly::BodyTemperatureEstimator estimator;
  Table table(folder, "temperature_step", {"time_s", "skin_C", "ambient_C", "estimate_C"});
  for (int n = 0; n < 80; ++n) {
    const double skin = n < 20 ? 34 : 35;
    const double ambient = n < 45 ? 23 : 20;
    const float estimate = estimator.process(static_cast<float>(skin), static_cast<float>(ambient));
    table.row({double(n), skin, ambient, static_cast<double>(estimate)});
  }
}

}  // namespace

void writeTemperature(const std::filesystem::path& folder) {
  writeSettled(folder);
  writeTemperatureStep(folder);
}

}  // namespace figures
