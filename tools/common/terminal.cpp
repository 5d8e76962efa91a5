// SPDX-License-Identifier: MIT
#include <tools/common/terminal.h>

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace Zephly::tools {

bool isDrawable(const char* type) {
  const std::string_view text = type == nullptr ? "" : type;
  return !text.empty() && text != "dumb";
}

bool isDrawableTerminal(int descriptor) {
  return ::isatty(descriptor) != 0 && isDrawable(std::getenv("TERM"));
}

}  // namespace Zephly::tools
