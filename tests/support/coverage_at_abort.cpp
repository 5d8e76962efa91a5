// SPDX-License-Identifier: MIT
// A program that aborts writes no coverage data, so code reached by death tests would be missed.
// Linked into the tests when they are built for coverage.

#include <csignal>

// Of GCC's libgcov. NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" void __gcov_dump();

namespace {

extern "C" void writeCoverage(int /*signal*/) { __gcov_dump(); }

// abort() ends the process when the handler returns.
[[maybe_unused]] const auto before = std::signal(SIGABRT, writeCoverage);

}  // namespace
