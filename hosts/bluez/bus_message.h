// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The values of D-Bus messages, read and written with sdbus-c++. For bus.cpp only.

#include <hosts/bluez/value.h>

#include <sdbus-c++/sdbus-c++.h>

namespace Zephly::bluez {

/// All values of a message; those before the first that cannot be read.
Arguments readAll(sdbus::Message& message);

/// Throws sdbus::Error for a value that D-Bus cannot carry.
void writeValue(sdbus::Message& message, const Value& value);
void writeAll(sdbus::Message& message, const Arguments& arguments);

}  // namespace Zephly::bluez
