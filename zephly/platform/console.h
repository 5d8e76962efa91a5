// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Where the kit's diagnostic lines go: standard output, one line at a time, flushed.
///
///   Zephly::console() << "didFailToConnectPeripheral" << std::endl;
///
/// The stream shares std::cout's buffer as it is at the moment of the call, so an application that
/// replaces the buffer (std::cout.rdbuf) receives these lines too. Its formatting is independent of
/// std::cout: each call returns it with the classic locale and the default flags, precision, width
/// and exception mask. Use it from the main queue only,
/// like the rest of the kit.

#include <zephly/platform/export.h>

#include <ostream>

namespace Zephly {

/// The stream, ready for the next line.
ZEPHLY_EXPORT std::ostream& console();

}  // namespace Zephly
