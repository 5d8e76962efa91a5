// SPDX-License-Identifier: MIT
// Replaces the embedded page when it cannot be built.

#include <tools/view/assets.h>

namespace Zephly::view {

std::span<const Asset> assets() { return {}; }

}  // namespace Zephly::view
