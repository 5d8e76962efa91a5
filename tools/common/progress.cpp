// SPDX-License-Identifier: MIT
#include <tools/common/progress.h>

namespace Zephly::tools {

void Progress::line(const std::string& text) {
  wipe();
  output_.write(text + "\n");
  output_.flush();
}

void Progress::status(const std::string& text) {
  if (!drawable_) return;
  wipe();
  output_.write(text);
  shown_ = true;
  output_.flush();
}

void Progress::end() {
  wipe();
  output_.flush();
}

void Progress::wipe() {
  // Back to the start of the line, and erase it (ECMA-48, EL).
  if (shown_) output_.write("\r\x1B[K");
  shown_ = false;
}

}  // namespace Zephly::tools
