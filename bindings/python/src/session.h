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

/// Adds Zephly and BatteryStatus.
void bindSession(py::module_& module);

}  // namespace zephly_python
