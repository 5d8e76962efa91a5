#pragma once
/// @file
/// The page that `zephly view` serves, as the build has embedded it in the program.
///
///   for (const Asset& asset : assets()) serve(asset.path, asset.contentType, asset.body);
///
/// A program that was built without Node.js has no page: assets() is empty then.

#include <span>
#include <string_view>

namespace Zephly::view {

/// One file of the page. Everything lives as long as the program.
struct Asset {
  std::string_view path;         ///< as in the address: "/" for the page itself, "/assets/x.js"
  std::string_view contentType;  ///< "text/html; charset=utf-8"
  std::string_view body;         ///< its bytes, any value, not ended by a zero
  bool immutable;                ///< the path changes when the body does: may be kept for ever
};

/// All files of the page, each path once; empty when the program was built without it.
std::span<const Asset> assets();

}  // namespace Zephly::view
