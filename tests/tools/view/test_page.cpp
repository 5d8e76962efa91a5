// SPDX-License-Identifier: MIT
// A small page in place of the real one, so that the program can be tested without Node.js.

#include <tools/view/assets.h>

#include <array>

namespace Zephly::view {

std::span<const Asset> assets() {
  static constexpr std::array<Asset, 1> page = {
      Asset{"/", "text/html; charset=utf-8", "<!doctype html><title>Test page</title>", false}};
  return page;
}

}  // namespace Zephly::view
