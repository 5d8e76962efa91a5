// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What goes wrong in one run, and when. A seed determines it; its steps can be taken out one by
/// one, which is how a failing schedule is made shorter. As text it can be kept: what a seed means
/// changes with the disturbances that there are.
///
///   const Schedule schedule = Schedule::ofSeed(17);
///   std::cout << schedule.text();
///   const Schedule same = Schedule::ofText(schedule.text());

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace schedules {

using Duration = std::chrono::nanoseconds;

/// What happens at a step. Those with a length last that long; `value` is given for each.
enum class Action {
  linkLoss,         ///< the strap is out of range
  cutAtNextStep,    ///< the link is cut after `value` more steps of a connection
  powerOff,         ///< the adapter is switched off
  adapterGone,      ///< the adapter is unplugged
  serviceKilled,    ///< bluetoothd is not running
  busLost,          ///< the bus closes the connection and cannot be opened
  busSilent,        ///< the bus accepts connections and does not answer
  slow,             ///< messages take up to `value` ms in each direction
  stalled,          ///< nothing is passed on, then everything at once
  silent,           ///< calls are neither performed nor answered
  replyLost,        ///< calls are performed and not answered
  refused,          ///< calls fail; `value` says with which error
  signalsTwice,     ///< changes of properties are signalled twice
  strapSilent,      ///< the strap sends nothing
  foreignLink,      ///< another program connects the strap
  foreignSignals,   ///< another program signals changes that look like bluetoothd's
  wallClockStep,    ///< the wall clock is set, by `value` s
  diskFull,         ///< writes to files fail with ENOSPC
  diskInterrupted,  ///< the next `value` calls on files fail with EINTR
  diskShort,        ///< the next `value` writes to files write a part only
  readerStalls,     ///< nobody reads the standard output
  viewerOpens,      ///< a viewer of the page; reads `value` bytes at a time, 0: everything
  viewerLeaves,     ///< the oldest viewer goes; `value` says how politely
  viewersStall,     ///< no viewer reads
  rubbish,          ///< a client of the page breaks the protocol; `value` says how
  allocationFails,  ///< the allocation number `value` from here on throws std::bad_alloc
  endSignal,        ///< SIGTERM; nothing follows it
};

inline constexpr std::size_t actionCount = static_cast<std::size_t>(Action::endSignal) + 1;

struct Step {
  Duration at{};
  Action action{};
  Duration length{};
  int value = 0;
};

/// What runs.
enum class Command {
  application,  ///< a session with a delegate that compares everything
  record,       ///< zephly record
  monitor,      ///< zephly monitor --json
  view,         ///< zephly view, with viewers
};

struct Schedule {
  std::uint64_t seed = 0;
  Command command = Command::application;
  bool descriptors = false;     ///< values come by descriptors, not by signals
  std::size_t viewerQueue = 0;  ///< bytes that may wait for a viewer
  std::vector<Step> steps;      ///< in order of time
  Duration calm{};              ///< after the last step, without disturbance
  Duration duration{};          ///< of the whole run

  static Schedule ofSeed(std::uint64_t seed);
  /// What text() has returned; lines that begin with # are skipped. std::runtime_error with one
  /// line when it is something else.
  static Schedule ofText(const std::string& text);
  /// The same without the steps whose indices are not in `kept`.
  Schedule with(const std::vector<std::size_t>& kept) const;
  /// Whether nothing on the disk fails.
  bool diskIsGood() const;
  bool has(Action action) const;
  /// One line for the run, and one for each step.
  std::string text() const;

 private:
  void begin(const std::string& line);
  void close();
};

std::string_view nameOf(Action action);
std::string_view nameOf(Command command);

}  // namespace schedules
