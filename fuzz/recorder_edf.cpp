// SPDX-License-Identifier: MIT
// EDF, EDF+, BDF and BDF+: any file, and files whose header is complete but for what its fields
// say, because a fuzzer cannot guess a header of 512 bytes.

#include <fuzz/support/input.h>
#include <fuzz/support/read_signals.h>
#include <fuzz/support/scratch_folder.h>
#include <fuzz/support/target.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using fuzz::Input;

std::string field(std::string text, std::size_t width) {
  text.resize(width, ' ');
  return text;
}

// Usually a number that fits, sometimes any text.
std::string number(Input& input, int usual, std::size_t width) {
  switch (input.below(8)) {
    case 0:
      return field(input.text(8), width);
    case 1:
      return field(std::to_string(input.number<std::int32_t>()), width);
    case 2:
      return field(std::to_string(input.byte()), width);
    default:
      return field(std::to_string(usual), width);
  }
}

std::vector<std::uint8_t> edfFile(Input& input) {
  if (input.below(4) == 0) return input.remaining();
  static constexpr std::array<const char*, 8> kinds = {"",  "EDF+C", "EDF+D", "EDF+",
                                                       "x", "24BIT", "BDF+C", "BDF+D"};
  const int signals = static_cast<int>(1 + input.below(4));
  const std::string size = number(input, 256 * (signals + 1), 8);
  const unsigned kind = input.below(kinds.size());
  const bool bdf = kind >= 5;
  std::string text = field(bdf ? "\xFF"
                                 "BIOSEMI"
                               : "0",
                           8) +
                     field("", 176) + size + field(kinds.at(kind), 44) +
                     number(input, input.coin() ? -1 : 2, 8) + number(input, 1, 8) +
                     number(input, signals, 4);
  const bool timed = input.coin();
  const auto each = [&](const auto& one) {
    for (int i = 0; i < signals; ++i) text += one(i);
  };
  each([&](int i) {
    if (timed && i + 1 == signals) return field(bdf ? "BDF Annotations" : "EDF Annotations", 16);
    return field(input.coin() ? "ECG" : "Resp", 16);
  });
  each([](int) { return field("", 80); });
  each([](int) { return field("uV", 8); });
  each([&](int) { return number(input, -100, 8); });
  each([&](int) { return number(input, 100, 8); });
  each([&](int) { return number(input, -2048, 8); });
  each([&](int) { return number(input, 2047, 8); });
  each([](int) { return field("", 80); });
  each([&](int) { return number(input, 4, 8); });
  each([](int) { return field("", 32); });
  std::vector<std::uint8_t> file(text.begin(), text.end());
  const std::vector<std::uint8_t> data = input.remaining();
  file.insert(file.end(), data.begin(), data.end());
  return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  fuzz::readSignals(fuzz::ScratchFolder::holding("a.edf", edfFile(input)), {});
  return 0;
}
