// SPDX-License-Identifier: MIT
#include <bindings/python/src/callback.h>

#include <iostream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace zephly_python {

namespace {

// Guarded by the GIL.
struct Kit {
  std::thread::id user;
  int depth = 0;
  bool consoleOn = false;
};

Kit& kit() {
  static Kit only;
  return only;
}

}  // namespace

PythonReference::PythonReference(py::object object)
    : object_(new py::object(std::move(object)), [](py::object* kept) {
        // At the very end of the process there may be no interpreter any more to give it back to.
        if (Py_IsInitialized() == 0) return;
        const py::gil_scoped_acquire python;
        delete kept;
      }) {}

KitUse::KitUse() {
  Kit& state = kit();
  if (state.depth > 0 && state.user != std::this_thread::get_id()) {
    throw std::runtime_error("another thread runs a main queue or processes motion samples");
  }
  state.user = std::this_thread::get_id();
  ++state.depth;
  // The kit writes to the buffer that std::cout has at that moment; without one it formats nothing.
  buffer_ = std::cout.rdbuf();
  if (!state.consoleOn) std::cout.rdbuf(nullptr);
}

KitUse::~KitUse() {
  std::cout.rdbuf(buffer_);
  --kit().depth;
}

void setConsole(bool on) { kit().consoleOn = on; }

Busy::Use::Use(Busy& busy) : busy_(busy) {
  if (busy_.inUse_) throw std::runtime_error("the object is in use by another call");
  busy_.inUse_ = true;
}

}  // namespace zephly_python
