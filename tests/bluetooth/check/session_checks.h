#pragma once
/// @file
/// The checks of one session with one strap.

#include <platforms/bluez/bluetooth.h>
#include <tests/bluetooth/check/probe.h>
#include <tests/bluetooth/check/report.h>
#include <tests/bluetooth/check/stage.h>
#include <tests/bluetooth/check/strap_log.h>

#include <memory>
#include <string>

namespace Zephly::bluetooth_check {

/// A session that goes on from check to check, and the strap "strap" of the guest.
class SessionChecks {
 public:
  SessionChecks(Stage& stage, Report& report, bluez::Notifications notifications);

  /// Found, connected, all streams.
  void begin();
  /// Half a minute at full rate.
  void fullRate(Seconds time);
  /// `count` losses of the link, each kind in turn.
  void linkLosses(int count);
  /// bluetoothd stopped, killed, restarted; adapter off and on; controller pulled out and put back.
  void restarts();
  /// Straps that freeze, leave, refuse, and send values of unusual size.
  void oddStraps();
  /// Two strangers that nearly have the strap's name.
  void strangers();
  /// Memory, processor and threads over all that went before.
  void usage();
  /// The program goes: the strap is released.
  void leave();

 private:
  bool allStreams();
  bool recover(Seconds limit, Row& row);
  void fault(const std::string& what, const std::function<void()>& cause, Seconds limit);
  Tally tallyOfLinks();
  void drain();
  void nudge();

  Stage& stage_;
  Report& report_;
  StrapLog log_{"/out/strap.log"};
  std::unique_ptr<bluez::Bluetooth> bluetooth_;
  std::shared_ptr<Probe> probe_;
  Usage atBegin_;
  Seconds beganAt_{0};
};

}  // namespace Zephly::bluetooth_check
