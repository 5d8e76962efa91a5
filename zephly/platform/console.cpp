#include <zephly/platform/console.h>

#include <iostream>
#include <locale>

std::ostream& console() {
  // Never destroyed: diagnostics may be written while other static objects are torn down.
  static std::ostream& stream = []() -> std::ostream& {
    auto* created = new std::ostream(nullptr);
    created->imbue(std::locale::classic());
    return *created;
  }();
  stream.rdbuf(std::cout.rdbuf());  // also clears an error state left by an earlier buffer
  return stream;
}
