// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Without the interpreter's lock, and the end of the interpreter.
///
///     {
///       const Unlocked others;   // SystemExit when the interpreter is ending
///       work();                  // without the GIL
///     }
///
/// When the interpreter ends it stops each daemon thread where that asks for the GIL, which ends
/// the process with an abort if C++ is on the thread's stack. So the end waits until no thread is
/// in such a scope: it stops the queues that run, and refuses new scopes in other threads.

#include <pybind11/pybind11.h>

namespace zephly_python {

namespace py = pybind11;

/// Raises SystemExit when the interpreter is ending and this is another thread. With the GIL. Any
/// other exception would make the thread print a traceback, and the interpreter aborts if a daemon
/// thread holds the lock of standard error while it ends.
void checkEnding();

/// Counts the scopes without the GIL. Made and destroyed with the GIL.
class Unlocking {
 public:
  Unlocking();
  Unlocking(const Unlocking&) = delete;
  Unlocking& operator=(const Unlocking&) = delete;
  ~Unlocking();
};

/// The scope in which a thread runs C++ without the GIL.
class Unlocked {
 private:
  Unlocking counted_;
  py::gil_scoped_release released_;
};

/// Registers what waits at the end of the interpreter. `stopQueues` is called first, with the GIL.
void waitAtTheEnd(void (*stopQueues)());

}  // namespace zephly_python
