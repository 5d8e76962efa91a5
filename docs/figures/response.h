// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The frequency response of a linear chain, from its impulse response.
///
///     const Response response(impulseResponse(chain, 8192), 500);
///     const double gain = response.at(50).gain;  // dB

#include <complex>
#include <functional>
#include <vector>

namespace figures {

/// A chain: one sample in, one sample out.
using Chain = std::function<double(double)>;

/// The output for the input 1, 0, 0, ...
std::vector<double> impulseResponse(const Chain& chain, int length);

/// `count` frequencies from `first` to `last`, evenly spaced on a logarithmic axis.
std::vector<double> logarithmic(double first, double last, int count);

/// The discrete-time Fourier transform of an impulse response.
class Response {
 public:
  struct Point {
    double gain;   ///< dB, not below lowestGain
    double delay;  ///< group delay in seconds; not a number where the gain is too low
    std::complex<double> factor;
  };
  static constexpr double lowestGain = -120;

  /// `impulse` must be long enough to have decayed; `rate` in samples per second.
  Response(std::vector<double> impulse, double rate);

  /// `frequency` in Hz, up to half the rate.
  Point at(double frequency) const;

 private:
  std::vector<double> impulse_;
  double rate_;
};

}  // namespace figures
