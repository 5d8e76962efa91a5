// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The engine and the processing wrapper as Python sees them.

#include <bindings/python/src/callback.h>

namespace zephly_python {

/// Adds Engine and SignalProcessor.
void bindEngine(py::module_& module);

}  // namespace zephly_python
