#pragma once
/// @file
/// Values in and out of the messages of sdbus-c++. For the source of the bus alone: nobody else
/// knows that library.

#include <platforms/bluez/value.h>

#include <sdbus-c++/sdbus-c++.h>

namespace Zephly::bluez {

/// Everything that the message holds; what cannot be read ends it.
Arguments readAll(sdbus::Message& message);

/// Appends the value. Throws sdbus::Error for a shape that cannot be sent.
void write(sdbus::Message& message, const Value& value);
void writeAll(sdbus::Message& message, const Arguments& arguments);

}  // namespace Zephly::bluez
