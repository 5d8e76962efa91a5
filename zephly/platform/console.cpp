// SPDX-License-Identifier: MIT
#include <zephly/platform/console.h>

#include <ios>
#include <iostream>
#include <locale>

namespace Zephly {

namespace {

struct Console {
  Console() { format.imbue(std::locale::classic()); }

  std::ostream stream{nullptr};
  std::ios format{nullptr};  // that of every line: the defaults of a new stream
};

}  // namespace

std::ostream& console() {
  // Never destroyed: diagnostics may be written while other static objects are torn down.
  static Console& one = *new Console;
  // The previous user may have left flags, a locale or an exception mask in the stream. The mask is
  // reset before the buffer is set: with it, a null buffer would throw.
  one.stream.copyfmt(one.format);
  one.stream.rdbuf(std::cout.rdbuf());  // also clears an error state left by an earlier buffer
  return one.stream;
}

}  // namespace Zephly
