// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The page of `zephly view` and that of `zephly report`, embedded in the program by the build.
///
///   for (const Asset& asset : assets()) serve(asset.path, asset.contentType, asset.body);
///   file << reportPage().before << json << reportPage().after;
///
/// Without Node.js at build time there are no pages, and both are empty.

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

/// A whole HTML document with its scripts and styles, cut where its data go: a JSON text without
/// any "<".
struct ReportPage {
  std::string_view before;
  std::string_view after;
};

/// Empty parts without a page.
ReportPage reportPage();

/// The error of a command that needs a page, where there is none.
inline constexpr const char* noPage =
    "this program was built without Node.js and has no page; install nodejs 18 or newer with npm "
    "and build it again";

}  // namespace Zephly::view
