// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A string stream with a decimal point in every locale. It throws std::bad_alloc when there is no
/// memory for more text; a standard one would drop the rest of the text silently.
///
///   TextStream text;
///   text << std::fixed << 1.5;
///   return text.str();

#include <ios>
#include <locale>
#include <sstream>

namespace Zephly::tools {

class TextStream final : public std::ostringstream {
 public:
  TextStream() {
    imbue(std::locale::classic());
    exceptions(std::ios::badbit);
  }
};

}  // namespace Zephly::tools
