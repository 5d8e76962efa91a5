// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The session as Python sees it, and how the kit's delegates reach Python's.
///
///     Session session(delegate, host);   // delegate: any object with some of ZephlyDelegate's
///     methods

#include <bindings/python/src/callback.h>

namespace zephly_python {

/// The methods of a workout delegate, ended by a null pointer.
extern const char* const workoutMethods[];

/// Checks a delegate, `what` in messages. TypeError unless it has at least one of the methods,
/// which end with a null pointer. A warning for each other method whose name resembles one of a
/// delegate.
void requireDelegate(const py::object& delegate, const char* what, const char* const* methods);

/// Adds Zephly and BatteryStatus.
void bindSession(py::module_& module);

}  // namespace zephly_python
