// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The log of the strap's actions: one line each, "SECONDS.MICROS WHAT", in the time of the
/// monotonic clock, which all programs of a machine share.

#include <hosts/main_queue/main_queue.h>

#include <fstream>
#include <ostream>
#include <string>
#include <string_view>

namespace Zephly::att_strap {

/// Writes events immediately, and frames ten times a second.
class EventLog {
 public:
  /// Without a file name, to standard output. std::runtime_error when it cannot be written.
  EventLog(main_queue::MainQueue& queue, const std::string& file);

  /// An event; on disk when this returns.
  void event(std::string_view line);
  /// A frame; on disk within 100 ms.
  void frame(std::string_view line);

 private:
  void write(std::string_view line);

  main_queue::MainQueue& queue_;
  std::ofstream file_;
  std::ostream& out_;
  main_queue::Timer flush_;
};

}  // namespace Zephly::att_strap
