// SPDX-License-Identifier: MIT
#include <tools/monitor/held_errors.h>

#include <sys/mman.h>
#include <unistd.h>

#include <array>

namespace Zephly::monitor::held_errors {

namespace {

// Reached from a signal handler, so plain descriptors; -1 is none.
int kept = -1;      // a file in memory
int original = -1;  // standard error as it was

}  // namespace

void hold() {
  if (kept >= 0 || ::isatty(STDERR_FILENO) == 0) return;
  kept = ::memfd_create("standard error", MFD_CLOEXEC);
  original = ::dup(STDERR_FILENO);
  if (kept < 0 || original < 0) return;
  ::dup2(kept, STDERR_FILENO);
}

void release() {
  if (kept < 0 || original < 0) return;
  ::dup2(original, STDERR_FILENO);
  ::lseek(kept, 0, SEEK_SET);
  std::array<char, 1024> part{};
  for (ssize_t count = 0; (count = ::read(kept, part.data(), part.size())) > 0;) {
    if (::write(STDERR_FILENO, part.data(), static_cast<std::size_t>(count)) < 0) break;
  }
  ::close(original);
  ::close(kept);
  kept = -1;
  original = -1;
}

}  // namespace Zephly::monitor::held_errors
