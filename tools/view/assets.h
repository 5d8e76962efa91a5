// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The page of `zephly view`, embedded in the program by the build.
///
///   for (const Asset& asset : assets()) serve(asset.path, asset.contentType, asset.body);
///
/// Without Node.js at build time there is no page, and assets() is empty.

#include <span>
#include <string_view>

namespace Zephly::view {

/// One file of the page. Everything lives as long as the program.
struct Asset {
  std::string_view path;         ///< of the URL: "/" for the page itself, "/assets/x.js"
  std::string_view contentType;  ///< "text/html; charset=utf-8"
  std::string_view body;         ///< may contain any byte
  bool immutable;                ///< the path changes with the body: browsers may cache it
};

/// All files of the page, each path once; empty without a page.
std::span<const Asset> assets();

}  // namespace Zephly::view
