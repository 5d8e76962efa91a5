// SPDX-License-Identifier: MIT
#include <tools/monitor/terminal_kind.h>

#include <tools/common/terminal.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>
#include <string_view>

namespace Zephly::monitor {

namespace {

std::string_view valueOf(const Environment& environment, const char* name) {
  const char* value = environment(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

bool isUtf8(const Environment& environment) {
  // The first variable that is set decides, as in the C library.
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    std::string locale(valueOf(environment, name));
    if (locale.empty()) continue;
    std::transform(locale.begin(), locale.end(), locale.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
  }
  return false;
}

}  // namespace

TerminalKind terminalKind(int descriptor) {
  return terminalKind(::isatty(descriptor) != 0,
                      [](const char* name) -> const char* { return std::getenv(name); });
}

TerminalKind terminalKind(bool terminal, const Environment& environment) {
  if (!terminal) return {};
  const bool drawable = tools::isDrawable(environment("TERM"));
  const bool colors = drawable && valueOf(environment, "NO_COLOR").empty();
  return {true, drawable, isUtf8(environment), colors ? Colors::ansi : Colors::none};
}

}  // namespace Zephly::monitor
