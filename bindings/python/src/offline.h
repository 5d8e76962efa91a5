// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The module zephly.offline: the kit's processing for whole recordings.

#include <bindings/python/src/callback.h>

namespace zephly_python {

/// Adds the module, with Ecg and Respiration.
void bindOffline(py::module_& module);

}  // namespace zephly_python
