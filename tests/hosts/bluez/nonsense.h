// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Random messages: bodies of every type that D-Bus can carry, from a seeded generator.

#include <tests/support/fake_bluez/bus_value.h>

#include <random>
#include <string>

namespace bluez_test {

using Random = std::mt19937;

/// Random arguments, possibly none; sometimes deeply nested or large.
fake_bluez::Writer nonsense(Random& random);

/// A value of a type that the real property never has.
fake_bluez::Value oddValue(Random& random);

/// Arguments of PropertiesChanged with a known interface, known names and random values.
fake_bluez::Writer plausibleChange(Random& random);

/// Arguments of InterfacesAdded or InterfacesRemoved for a path, with some interfaces and random
/// properties.
fake_bluez::Writer plausibleAdded(Random& random, const std::string& path);
fake_bluez::Writer plausibleRemoved(Random& random, const std::string& path);

}  // namespace bluez_test
