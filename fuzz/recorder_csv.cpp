// SPDX-License-Identifier: MIT
// Signals as CSV: any text, with a rate or with a column of times.

#include <tools/vitals/csv_reader.h>
#include <fuzz/support/input.h>
#include <fuzz/support/read_signals.h>
#include <fuzz/support/scratch_folder.h>
#include <fuzz/support/target.h>

#include <array>
#include <cstdint>
#include <optional>

namespace {

std::optional<double> rateOf(fuzz::Input& input) {
  using Zephly::recorders::CsvReader;
  constexpr std::array<double, 4> rates = {CsvReader::slowestRate, 100, 250,
                                           CsvReader::fastestRate};
  const unsigned choice = input.below(8);
  if (choice < rates.size()) return rates.at(choice);
  return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const auto rate = rateOf(input);
  fuzz::readSignals(fuzz::ScratchFolder::holding("a.csv", input.remaining()), {.rate = rate});
  return 0;
}
