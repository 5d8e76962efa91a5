// SPDX-License-Identifier: MIT
#include <bindings/python/src/capture.h>
#include <bindings/python/src/engine.h>
#include <bindings/python/src/filters.h>
#include <bindings/python/src/hosts.h>
#include <bindings/python/src/main_queue.h>
#include <bindings/python/src/offline.h>
#include <bindings/python/src/session.h>
#include <bindings/python/src/vitals.h>

PYBIND11_MODULE(_zephly, module) {
  // The classes belong to the package, not to this part of it.
  module.attr("__name__") = "zephly";
  module.doc() = "The Zephly chest strap.";
  module.attr("__version__") = ZEPHLY_PYTHON_VERSION;
  zephly_python::bindMainQueue(module);
  zephly_python::bindHosts(module);
  zephly_python::bindOffline(module);
  zephly_python::bindVitals(module);
  zephly_python::bindSession(module);
  zephly_python::bindEngine(module);
  zephly_python::bindFilters(module);
  zephly_python::bindCapture(module);
  module.attr("__name__") = "zephly._zephly";
}
