// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Captures as NumPy arrays: the values and times that `zephly export --csv` writes.

#include <bindings/python/src/callback.h>

namespace zephly_python {

/// Adds Capture, CaptureEvent and CaptureError.
void bindCapture(py::module_& module);

}  // namespace zephly_python
