#pragma once
/// @file
/// Ctrl-C for a program that computes and waits for nothing: the work asks now and then whether it
/// is to end, and can clean up.
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

/// While one lives, SIGINT, SIGTERM and SIGHUP are only noted. One at a time in a process. A signal
/// that was ignored before stays so: nohup(1) works.
class EndSignals {
 public:
  EndSignals();
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;
  /// Puts back what was there before.
  ~EndSignals();

  /// Whether one has come since the last EndSignals began.
  static bool came();

 private:
  static constexpr std::array signals = {SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, signals.size()> before_{};
};

}  // namespace Zephly::exporting
