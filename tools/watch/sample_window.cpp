// SPDX-License-Identifier: MIT
#include <tools/watch/sample_window.h>

#include <algorithm>
#include <limits>

namespace Zephly::watch {

void SampleWindow::appendGap(std::uint64_t count) {
  // Samples that later ones would replace at once are counted, but not written.
  const std::uint64_t written = std::min<std::uint64_t>(count, samples_.size());
  end_ += count - written;
  for (std::uint64_t index = 0; index < written; ++index) {
    append(std::numeric_limits<float>::quiet_NaN());
  }
}

}  // namespace Zephly::watch
