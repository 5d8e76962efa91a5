// SPDX-License-Identifier: MIT
// Filters ECG samples through the engine as an application does: one number a line on standard
// input, one on standard output, each with the digits that give exactly this float again. For
// comparison with what the page has received.

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
