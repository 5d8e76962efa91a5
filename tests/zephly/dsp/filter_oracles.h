// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Slow reference implementations of the filters that share no code with them. The order of the
/// operations and every rounding matter: results are compared bit for bit.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace oracle {

enum class Pass { low, high, band, notch };

/// One or more equal second-order sections, designed from the tangent of the corner frequency.
class Biquad {
 public:
  Biquad(Pass pass, double frequency, int sections, double quality)
      : states_(static_cast<std::size_t>(sections)) {
    const double k = std::tan(3.141592653589793 * frequency);
    const double k2 = k * k;
    const double norm = 1.0 / (k2 + (k / quality + 1.0));
    const double half = k2 - 1.0;
    feedback1_ = (half + half) * norm;
    feedback2_ = (k2 + (1.0 - k / quality)) * norm;
    if (pass == Pass::low) {
      forward0_ = k2 * norm;
      forward1_ = 2 * forward0_;
      forward2_ = forward0_;
    } else if (pass == Pass::high) {
      forward0_ = norm;
      forward1_ = -2 * norm;
      forward2_ = norm;
    } else if (pass == Pass::band) {
      forward0_ = (k / quality) * norm;
      forward1_ = 0;
      forward2_ = -forward0_;
    } else {
      forward0_ = (1 + k2) * norm;
      forward1_ = feedback1_;
      forward2_ = forward0_;
    }
  }

  double step(double input) {
    last_ = input;
    for (State& state : states_) {
      const double output = forward0_ * input + state.first;
      const double sum = forward1_ * input + state.second;
      state.first = sum - feedback1_ * output;
      state.second = forward2_ * input - feedback2_ * output;
      input = output;
    }
    return input;
  }

  void settle() {
    const double level = last_;
    for (int i = 0; i < 50000; ++i) step(level);
  }

 private:
  struct State {
    double first = 0.0;
    double second = 0.0;
  };
  double forward0_ = 0.0;
  double forward1_ = 0.0;
  double forward2_ = 0.0;
  double feedback1_ = 0.0;
  double feedback2_ = 0.0;
  double last_ = 0.0;
  std::vector<State> states_;
};

/// Sorts the latest samples, as many zeros before them as are missing, and picks by rank.
class Median {
 public:
  explicit Median(std::size_t size) : size_(size), history_(size, 0.0) {}

  double step(double input) {
    history_.push_back(input);
    history_.erase(history_.begin());
    std::vector<double> sorted;
    for (const double sample : history_) {
      if (!std::isnan(sample)) sorted.push_back(sample);
    }
    std::sort(sorted.begin(), sorted.end());
    sorted.resize(size_, std::nan(""));
    const std::size_t middle = size_ / 2;
    return size_ % 2 == 1 ? sorted[middle + 1] : (sorted[middle] + sorted[middle + 1]) * 0.5;
  }

 private:
  std::size_t size_;
  std::vector<double> history_;
};

/// Scales by the extremes of the latest samples. They are stored in a ring, and the search starts
/// at a fixed index: that matters when there is a NaN.
class Normalization {
 public:
  Normalization(std::size_t size, bool symmetric) : symmetric_(symmetric), circle_(size, 0.0) {}

  double step(double input) {
    circle_[steps_ % circle_.size()] = input;
    ++steps_;
    double low = circle_.front();
    double high = circle_.front();
    for (const double sample : circle_) {
      low = sample < low ? sample : low;
      high = sample > high ? sample : high;
    }
    if (symmetric_) {
      high = std::abs(high) > std::abs(low) ? std::abs(high) : std::abs(low);
      low = -high;
    }
    return high - low == 0.0 ? 0.0 : (input - low) / (high - low);
  }

  void clear() { std::fill(circle_.begin(), circle_.end(), 0.0); }

 private:
  bool symmetric_;
  std::vector<double> circle_;
  std::size_t steps_ = 0;
};

/// The input of `delay` samples ago minus the current low-passed input.
class LowCut {
 public:
  LowCut(std::size_t delay, double frequency, int sections)
      : delay_(delay), lowPass_(Pass::low, frequency, sections, 0.707) {}

  double step(double input) {
    history_.push_back(input);
    const std::size_t now = history_.size() - 1;
    const double delayed = now >= delay_ ? history_[now - delay_] : 0.0;
    return delayed - lowPass_.step(input);
  }

 private:
  std::size_t delay_;
  Biquad lowPass_;
  std::vector<double> history_;
};

/// The ECG chain: each stage takes and gives a float.
class EcgChain {
 public:
  float step(float sample) {
    sample = static_cast<float>(notch1_.step(sample));
    sample = static_cast<float>(notch2_.step(sample));
    sample = static_cast<float>(notch3_.step(sample));
    sample = static_cast<float>(notch4_.step(sample));
    sample = static_cast<float>(lowPass_.step(sample));
    sample = static_cast<float>(lowCut_.step(sample));
    return static_cast<float>(normalization_.step(sample));
  }

  /// The same without the rounding between the stages.
  float stepInDouble(float sample) {
    double value = sample;
    value = notch4_.step(notch3_.step(notch2_.step(notch1_.step(value))));
    return static_cast<float>(normalization_.step(lowCut_.step(lowPass_.step(value))));
  }

 private:
  Biquad notch1_{Pass::notch, 0.10000000149011612, 2, 5.0};
  Biquad notch2_{Pass::notch, 0.11999999731779099, 2, 5.0};
  Biquad notch3_{Pass::notch, 0.20000000298023224, 1, 15.0};
  Biquad notch4_{Pass::notch, 0.25, 1, 1.0};
  Biquad lowPass_{Pass::low, 0.10000000149011612, 4, 1.0};
  LowCut lowCut_{109, 0.004000000189989805, 2};
  Normalization normalization_{1000, true};
};

/// The respiration chain: double precision from end to end.
class RespirationChain {
 public:
  float step(float sample) {
    double value = sample;
    value = notch2_.step(notch1_.step(value));
    value = lowPass_.step(median_.step(value));
    return static_cast<float>(normalization.step(highPass.step(value)));
  }

  Biquad highPass{Pass::high, 0.00008, 1, 0.707};
  Normalization normalization{5000, true};

 private:
  Biquad notch1_{Pass::notch, 0.1, 2, 5.0};
  Biquad notch2_{Pass::notch, 0.25, 1, 1.0};
  Median median_{300};
  Biquad lowPass_{Pass::low, 0.004, 4, 0.707};
};

}  // namespace oracle
