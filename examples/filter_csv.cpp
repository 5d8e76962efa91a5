// SPDX-License-Identifier: MIT
/// The engine without a session: filters ECG samples from standard input, one number a line
/// (anything behind a comma is not used), and writes the filtered ones, 0 to 1, to standard output.
/// Needs the kit only: no host, no Bluetooth, no main queue.
///
///     ./filter_csv < ecg.csv > filtered.csv
///
/// The filters are made for 500 samples a second in the strap's own scale (full scale +-2.42). A
/// first line that is no number is taken for a heading and passed on.

#include <zephly/zephly.h>

#include <charconv>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace {

// The number at the beginning of the line, up to its end or a comma.
std::optional<float> sampleOf(const std::string& line) {
  const char* const end = line.data() + line.size();
  float sample = 0;
  const auto [stop, error] = std::from_chars(line.data(), end, sample);
  if (error != std::errc() || (stop != end && *stop != ',' && *stop != '\r')) return std::nullopt;
  return sample;
}

}  // namespace

int main() {
  std::ios::sync_with_stdio(false);
  const auto processor = SignalProcessor::init();
  std::cout.precision(9);  // enough to read back the same float
  std::string line;
  for (long number = 1; std::getline(std::cin, line); ++number) {
    const auto sample = sampleOf(line);
    if (sample) {
      std::cout << processor->processECG(*sample) << '\n';
    } else if (number == 1) {
      std::cout << line << '\n';
    } else {
      std::cout.flush();
      std::cerr << "filter_csv: line " << number << ": expected a number\n";
      return 1;
    }
  }
  std::cout.flush();
  if (std::cout) return 0;
  std::cerr << "filter_csv: cannot write to standard output\n";
  return 1;
}
