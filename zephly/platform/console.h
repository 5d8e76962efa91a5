#pragma once
/// @file
/// Where the kit's diagnostic lines go: standard output, one line at a time, flushed.
///
///   console() << "didFailToConnectPeripheral" << std::endl;
///
/// The stream shares std::cout's buffer as it is at the moment of the call, so an application that
/// replaces the buffer (std::cout.rdbuf) catches these lines too. Its formatting is its own: the
/// classic locale and the default flags, precision and width, whatever the application has done to
/// std::cout. Use it from the main queue only, like the rest of the kit.

#include <zephly/platform/export.h>

#include <ostream>

/// The stream itself, ready for the next line.
ZEPHLY_EXPORT std::ostream& console();
