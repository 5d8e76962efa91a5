// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Beats, breaths and vitals as Python sees them.

#include <bindings/python/src/callback.h>

namespace zephly_python {

/// The methods of a session's delegate that receive vitals.
inline constexpr const char* vitalsMethods[] = {"didFindBeat", "didFindBreath", "didMeasureSecond",
                                                nullptr};

/// Adds Beat, Breath, Second and Vitals.
void bindVitals(py::module_& module);

}  // namespace zephly_python
