// SPDX-License-Identifier: MIT
#include <zephly/platform/fatal_error.h>

#include <cstdlib>
#include <iostream>

namespace Zephly {

void fatalError(std::string_view message) {
  std::cout.flush();
  std::cerr << "zephly: fatal error: " << message << std::endl;
  std::abort();
}

}  // namespace Zephly
