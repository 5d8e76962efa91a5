// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The filters of the kit as Python sees them.

#include <bindings/python/src/callback.h>

namespace zephly_python {

/// Adds the filters, the two chains and the lead-off detector.
void bindFilters(py::module_& module);

}  // namespace zephly_python
