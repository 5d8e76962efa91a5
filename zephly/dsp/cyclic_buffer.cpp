// SPDX-License-Identifier: MIT
#include <zephly/dsp/cyclic_buffer.h>

#include <cstddef>

namespace Zephly {

void CyclicBuffer::push(float value) {
  values.push_back(value);
  if (static_cast<std::ptrdiff_t>(values.size()) > capacity) values.erase(values.begin());
}

}  // namespace Zephly
