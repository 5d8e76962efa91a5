// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Ctrl-C for a program that computes without an event loop: the work checks from time to time
/// whether it should end, and can clean up.
///
///   EndSignals signals;
///   while (more()) {
///     if (EndSignals::came()) throw std::runtime_error("interrupted");
///     work();
///   }

#include <array>
#include <csignal>
#include <cstddef>

namespace Zephly::exporting {

/// While one exists, SIGINT, SIGTERM and SIGHUP only set a flag. One at a time in a process. A
/// signal that was ignored before stays ignored: nohup(1) works.
class EndSignals {
 public:
  EndSignals();
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;
  /// Restores the previous handlers.
  ~EndSignals();

  /// Whether one has come since the last EndSignals began.
  static bool came();

 private:
  static constexpr std::array signals = {SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, signals.size()> before_{};
};

}  // namespace Zephly::exporting
