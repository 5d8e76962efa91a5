// SPDX-License-Identifier: MIT
// Small pages in place of the real ones, so that the program can be tested without Node.js.

#include <tools/view/assets.h>

#include <array>

namespace Zephly::view {

std::span<const Asset> assets() {
  static constexpr std::array<Asset, 1> page = {
      Asset{"/", "text/html; charset=utf-8", "<!doctype html><title>Test page</title>", false}};
  return page;
}

ReportPage reportPage() { return {"<!doctype html><title>Test report</title>\n", "\n"}; }

}  // namespace Zephly::view
