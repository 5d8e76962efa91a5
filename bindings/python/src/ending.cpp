// SPDX-License-Identifier: MIT
#include <bindings/python/src/ending.h>

#include <chrono>
#include <optional>
#include <thread>

namespace zephly_python {

namespace {

using namespace std::chrono_literals;

// A callback that does not return, for example because it sleeps, must not keep the process.
constexpr auto longestWait = 5s;

// Guarded by the GIL.
struct State {
  int unlocked = 0;
  std::optional<std::thread::id> ending;  // the thread that ends the interpreter
};

State& state() {
  static State only;
  return only;
}

}  // namespace

void checkEnding() {
  if (state().ending && *state().ending != std::this_thread::get_id()) {
    PyErr_SetNone(PyExc_SystemExit);
    throw py::error_already_set();
  }
}

Unlocking::Unlocking() {
  checkEnding();
  ++state().unlocked;
}

Unlocking::~Unlocking() { --state().unlocked; }

void waitAtTheEnd(void (*stopQueues)()) {
  const py::cpp_function end([stopQueues] {
    state().ending = std::this_thread::get_id();
    stopQueues();
    const auto limit = std::chrono::steady_clock::now() + longestWait;
    while (state().unlocked > 0 && std::chrono::steady_clock::now() < limit) {
      const py::gil_scoped_release others;
      std::this_thread::sleep_for(1ms);
    }
  });
  py::module_::import("atexit").attr("register")(end);
}

}  // namespace zephly_python
