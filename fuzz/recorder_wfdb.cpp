// SPDX-License-Identifier: MIT
// WFDB records: any text as the header, up to a zero byte, and any bytes as the samples of the two
// files that it may name.

#include <fuzz/support/input.h>
#include <fuzz/support/read_signals.h>
#include <fuzz/support/scratch_folder.h>
#include <fuzz/support/target.h>

#include <algorithm>
#include <cstdint>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t cut = input.byte();
  const std::vector<std::uint8_t> all = input.remaining();
  const auto end = std::find(all.begin(), all.end(), std::uint8_t{0});
  const auto samples = end == all.end() ? end : end + 1;
  const auto middle = samples + std::min(static_cast<std::ptrdiff_t>(cut),
                                         static_cast<std::ptrdiff_t>(all.end() - samples));
  fuzz::ScratchFolder::holding("a.dat", {samples, all.end()});
  fuzz::ScratchFolder::holding("b.dat", {samples, middle});
  fuzz::readSignals(fuzz::ScratchFolder::holding("a.hea", {all.begin(), end}), {});
  return 0;
}
