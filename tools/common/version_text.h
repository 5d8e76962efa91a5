// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The program's name and version.

#include <string>

namespace Zephly::tools {

/// "zephly 1.0"
std::string programName();

/// "zephly 1.0 (PROGRAM:Zephly  PROJECT:Zephly-SDK-1)"
std::string versionText();

}  // namespace Zephly::tools
