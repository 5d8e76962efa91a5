#pragma once
/// @file
/// Messages of no sense: bodies of every shape that D-Bus can carry, drawn by a seeded generator.

#include <tests/support/fake_bluez/bus_value.h>

#include <random>
#include <string>

namespace bluez_test {

using Random = std::mt19937;

/// Some arguments, none as well; deeply nested or large now and then.
fake_bluez::Writer nonsense(Random& random);

/// A property's value of a type that the real one never has.
fake_bluez::Value oddValue(Random& random);

/// Arguments of PropertiesChanged whose interface and names are known and whose values are not.
fake_bluez::Writer plausibleChange(Random& random);

/// Arguments of InterfacesAdded or InterfacesRemoved for a path, with some interfaces and odd
/// properties.
fake_bluez::Writer plausibleAdded(Random& random, const std::string& path);
fake_bluez::Writer plausibleRemoved(Random& random, const std::string& path);

}  // namespace bluez_test
