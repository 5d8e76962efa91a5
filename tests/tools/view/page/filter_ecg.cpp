// SPDX-License-Identifier: MIT
// Filters ECG samples with the engine, like an application: reads one number per line from standard
// input and writes one per line to standard output, with enough digits to read back the same float.
// The tests compare its output with the samples that the page has received.

#include <zephly/session/signal_processor.h>

#include <charconv>
#include <iostream>
#include <string>
#include <string_view>

int main() {
  const auto processor = ::SignalProcessor::init();
  for (std::string line; std::getline(std::cin, line);) {
    float sample = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), sample);
    if (error != std::errc() || end != line.data() + line.size()) {
      std::cerr << "error: not a number: " << line << '\n';
      return 1;
    }
    char text[32];
    const auto written =
        std::to_chars(std::begin(text), std::end(text), processor->processECG(sample));
    std::cout << std::string_view(text, written.ptr) << '\n';
  }
}
