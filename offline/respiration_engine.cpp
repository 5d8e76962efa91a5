// SPDX-License-Identifier: MIT
#include <offline/respiration_engine.h>

#include <cstddef>

namespace Zephly::offline {

void RespirationEngine::process(std::span<const float> in, std::uint64_t processorTime,
                                std::span<float> filtered, std::span<std::uint8_t> contact) {
  std::size_t done = 0;
  const auto filterUpTo = [&](std::size_t end) {
    chain_.process(in.subspan(done, end - done), filtered.subspan(done, end - done));
    done = end;
  };
  for (std::size_t i = 0; i < in.size(); ++i) {
    const bool on = detector_.step(in[i]);
    contact[i] = on ? 1 : 0;
    const bool settles = highPassTimer_.fires(on, processorTime);
    const bool clears = normalizationTimer_.fires(on, processorTime);
    if (!settles && !clears) continue;
    filterUpTo(i);
    if (settles) chain_.settleHighPass();
    if (clears) chain_.clearNormalization();
  }
  filterUpTo(in.size());
}

}  // namespace Zephly::offline
