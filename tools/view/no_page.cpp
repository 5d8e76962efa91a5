// SPDX-License-Identifier: MIT
// Replaces the embedded pages when they cannot be built.

#include <tools/view/assets.h>

namespace Zephly::view {

std::span<const Asset> assets() { return {}; }

ReportPage reportPage() { return {}; }

}  // namespace Zephly::view
