// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The checks of one session with one strap.

#include <hosts/bluez/bluetooth.h>
#include <tests/bluetooth/check/probe.h>
#include <tests/bluetooth/check/report.h>
#include <tests/bluetooth/check/stage.h>
#include <tests/bluetooth/check/strap_log.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Zephly::bluetooth_check {

/// Controls the strap at the other end.
struct StrapControl {
  std::string log;  ///< the strap's log file
  /// Pauses and resumes its streams.
  std::function<void()> silence;
  std::function<void()> resume;
  /// Sends the slow streams immediately.
  std::function<void()> nudge;
};

/// The guest's strap named "strap", which takes commands.
StrapControl commandedStrap(Stage& stage);
/// `zephly strap` on another adapter of the same bluetoothd.
StrapControl bluezStrap(Stage& stage);

/// One session with one strap that runs through all checks. Checks that send commands need a strap
/// that takes them.
class SessionChecks {
 public:
  SessionChecks(Stage& stage, Report& report, StrapControl strap, bluez::Options options);

  /// Found, connected, all streams.
  void begin();
  /// Half a minute at full rate.
  void fullRate(Seconds time);
  /// `count` losses of the link, each kind in turn.
  void linkLosses(int count);
  /// bluetoothd stopped, killed, restarted; adapter off and on; controller removed and returned.
  void restarts();
  /// Straps that freeze, disconnect and refuse.
  void oddStraps();
  /// Values of unusual sizes, in bytes.
  void oddSizes(const std::vector<std::size_t>& sizes);
  /// `count` losses of the link to `zephly strap`.
  void bluezStrapLosses(int count);
  /// bluetoothd, which serves both ends, restarted and killed.
  void sharedRestarts();
  /// Two devices with names similar to the strap's.
  void strangers();
  /// Memory, processor time and threads over all previous checks.
  void usage();
  /// The program exits: the strap is released.
  void leave();

 private:
  bool allStreams();
  bool recover(Seconds limit, Row& row);
  void fault(const std::string& what, const std::function<void()>& cause, Seconds limit);
  Tally tallyOfLinks();
  Tally tallyNow();
  void drain();
  std::string latency() const;

  Stage& stage_;
  Report& report_;
  StrapControl strap_;
  StrapLog log_;
  std::unique_ptr<bluez::Bluetooth> bluetooth_;
  std::shared_ptr<Probe> probe_;
  Usage atBegin_;
  Seconds beganAt_{0};
};

}  // namespace Zephly::bluetooth_check
