// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What keeps Bluetooth from working on this machine, as one line for people. The host on BlueZ and
/// `zephly strap` report the same lines.

#include <hosts/bluez/adapter_choice.h>
#include <hosts/bluez/daemon.h>
#include <hosts/main_queue/main_queue.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace Zephly::bluez {

/// The first thing that is missing, with its cause and a command that helps: "Bluetooth: adapter
/// hci0 is switched off. To switch it on: ...". Empty when nothing is missing, and while bluetoothd
/// has not answered yet. `adapter` is the path of the adapter in use, or empty; `role` is what it
/// is needed for: "central" or "peripheral".
std::string missing(const Daemon& daemon, const AdapterChoice& choice, const std::string& adapter,
                    std::string_view role);

/// Reports a line when it has changed: at once when nothing is missing, otherwise when the state
/// has lasted for `delay`. When bluetoothd starts, its adapters appear one by one, and switched
/// off.
class StatusReport {
 public:
  /// `line` gives the present line, or an empty text for nothing to report; `report` gets it by a
  /// turn of the queue or from inside update().
  StatusReport(main_queue::MainQueue& queue, std::chrono::milliseconds delay,
               std::function<std::string()> line, std::function<void(const std::string&)> report)
      : queue_(queue), delay_(delay), line_(std::move(line)), report_(std::move(report)) {}

  /// The status may have changed; `good`: nothing is missing.
  void update(bool good) {
    if (good) {
      timer_.cancel();
      now();
    } else if (!timer_.active()) {
      timer_ = queue_.after(delay_, [this] { now(); });
    }
  }
  /// Reports by the next turn of the queue, for callers in the middle of a change.
  void soon() {
    timer_ = queue_.after({}, [this] { now(); });
  }

  /// Reports nothing until the next update().
  void cancel() { timer_.cancel(); }

 private:
  void now() {
    const std::string line = line_();
    if (std::exchange(reported_, line) != line && !line.empty()) report_(line);
  }

  main_queue::MainQueue& queue_;
  std::chrono::milliseconds delay_;
  std::function<std::string()> line_;
  std::function<void(const std::string&)> report_;
  std::string reported_;  ///< the last line
  main_queue::Timer timer_;
};

}  // namespace Zephly::bluez
