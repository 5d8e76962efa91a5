// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Ends the program when the kit cannot continue, with one line on standard error.
///
///   if (!services) Zephly::fatalError("CBPeripheral.services is absent after discovery");
///
/// A fatal error is a broken contract between the kit, its host and the application (a list that
/// must not be absent is absent, a required delegate is destroyed), never a condition of the link
/// or of the data. It cannot be caught: it ends in std::abort(), after standard output has been
/// flushed so that no diagnostic line is lost.

#include <zephly/platform/export.h>

#include <string_view>

namespace Zephly {

/// Writes `message` and aborts.
ZEPHLY_EXPORT [[noreturn]] void fatalError(std::string_view message);

}  // namespace Zephly
