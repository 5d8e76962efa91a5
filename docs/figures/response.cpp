// SPDX-License-Identifier: MIT
#include <docs/figures/response.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <utility>

namespace figures {

namespace {

constexpr double lowestGainWithDelay = -60;  // dB

}  // namespace

std::vector<double> impulseResponse(const Chain& chain, int length) {
  std::vector<double> response;
  response.reserve(static_cast<std::size_t>(length));
  for (int n = 0; n < length; ++n) response.push_back(chain(n == 0 ? 1.0 : 0.0));
  return response;
}

std::vector<double> logarithmic(double first, double last, int count) {
  std::vector<double> frequencies;
  frequencies.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    frequencies.push_back(first * std::pow(last / first, static_cast<double>(i) / (count - 1)));
  }
  return frequencies;
}

Response::Response(std::vector<double> impulse, double rate)
    : impulse_(std::move(impulse)), rate_(rate) {}

Response::Point Response::at(double frequency) const {
  const double angle = -2 * std::numbers::pi * frequency / rate_;
  std::complex<double> sum = 0;
  std::complex<double> weighted = 0;  // its derivative, up to a factor: gives the group delay
  for (std::size_t n = 0; n < impulse_.size(); ++n) {
    const auto number = static_cast<double>(n);
    const auto term = std::polar(1.0, angle * number) * impulse_[n];
    sum += term;
    weighted += number * term;
  }
  const double gain = std::max(lowestGain, 20 * std::log10(std::abs(sum)));
  const double delay = gain < lowestGainWithDelay ? std::numeric_limits<double>::quiet_NaN()
                                                  : (weighted / sum).real() / rate_;
  return {gain, delay, sum};
}

}  // namespace figures
