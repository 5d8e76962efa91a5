// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Keeps the strap's GATT application and advertisement registered with bluetoothd, on the chosen
/// adapter, also when bluetoothd restarts or adapters are switched off and on, removed and added.
///
///   Presence presence(queue, {.bluetooth = {.adapter = "hci0"}, .name = "Zephly"}, listener);
///   presence.carry(frame);        // to subscribers
///   presence.loseLink(2s);        // disconnects, and advertises again after 2 s
///
/// No call blocks or throws: an error is reported in one line, and retried after a pause that grows
/// to a few seconds.

#include <hosts/bluez/adapter_choice.h>
#include <hosts/bluez/bluetooth.h>
#include <hosts/bluez/bus.h>
#include <hosts/bluez/daemon.h>
#include <hosts/bluez/retry.h>
#include <hosts/bluez/status.h>
#include <hosts/bluez/timing.h>
#include <hosts/main_queue/main_queue.h>
#include <simulator/frame.h>
#include <simulator/transmitter.h>
#include <tools/strap/advertisement.h>
#include <tools/strap/centrals.h>
#include <tools/strap/gatt_application.h>
#include <zephly/protocol/streams.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::peripheral {

struct PresenceOptions {
  bluez::Options bluetooth = {};  ///< adapter, bus address and timing; the rest is not used
  std::string name = {};          ///< advertised
  bool setAlias = false;          ///< gives the adapter that name until leave()
};

/// Called on the queue, from a turn of its own or from a call of bluetoothd.
class PresenceListener {
 public:
  virtual ~PresenceListener() = default;

  /// One line for people: a change of state or an error.
  virtual void onMessage(std::string_view line) = 0;
  virtual void onSubscription(Stream stream, bool subscribed) = 0;
  virtual void onCentral(const std::string& name, bool connected) = 0;
  /// There has been no D-Bus bus since the start. Presence keeps trying; a program ends.
  virtual void onFatal(const std::string& reason) = 0;

 protected:
  PresenceListener() = default;
  PresenceListener(const PresenceListener&) = default;
  PresenceListener& operator=(const PresenceListener&) = default;
};

class Presence final : public simulator::Carrier, private bluez::DaemonListener {
 public:
  /// Starts at once. `listener` must outlive it.
  Presence(main_queue::MainQueue& queue, PresenceOptions options, PresenceListener& listener);
  Presence(const Presence&) = delete;
  Presence& operator=(const Presence&) = delete;

  bool isSubscribed(Stream stream) const override;
  /// False while the strap is away.
  bool carry(simulator::Frame frame) override;

  /// Disconnects all centrals and advertises again `absence` later. During an absence it starts a
  /// new one.
  void loseLink(std::chrono::nanoseconds absence);

  /// Unregisters everything and disconnects. Waits only until the bus has accepted the requests,
  /// not for their replies. No callback follows.
  void leave();

 private:
  // One object of ours at bluetoothd. none -> asked by enter(), asked -> done by the reply, back to
  // none by an error, by withdraw() or when bluetoothd releases it. The application is registered
  // first and stays when the adapter is switched off or the strap is away; the advertisement needs
  // a registered application, a powered adapter and no absence (see proceed()).
  struct Registration {
    enum class State { none, asked, done };

    const char* what = "";       // for people
    const char* interface = "";  // of the manager
    const char* enter = "";      // method that registers
    const char* withdraw = "";   // method that unregisters
    const char* path = "";
    State state = State::none;
    std::uint64_t attempt = 0;  // a reply to an earlier attempt is ignored
  };

  void daemonChanged() override;
  void objectChanged(const bluez::ObjectChange& change) override;
  void deviceAdvertised(const std::string& /*path*/) override {}
  void valueArrived(const std::string& /*path*/, const bluez::Bytes& /*value*/) override {}
  void disconnectionExplained(const std::string& /*path*/, const std::string& /*reason*/) override {
  }

  void update();
  void useAdapter(const std::string& adapter);
  void setReady(bool ready);
  void proceed();
  void openBus();
  void busOpened(std::unique_ptr<bluez::Bus> bus, const bluez::BusError* error);
  void busLost();
  void enter(Registration& registration);
  void entered(Registration& registration);
  void withdraw(Registration& registration);
  void failed(const std::string& what, const std::string& reason);
  void setAlias();
  void restoreAlias();
  void beAway();
  void callWithoutReply(const std::string& path, const char* interface, const char* method,
                        const bluez::Arguments& arguments);
  void message(const std::string& line) { listener_.onMessage(line); }
  std::string adapterName() const;

  main_queue::MainQueue& queue_;
  PresenceOptions options_;
  PresenceListener& listener_;
  bluez::AdapterChoice choice_;
  Centrals centrals_;
  std::string adapter_;  ///< path; empty without one
  bool ready_ = false;   ///< there is an adapter and it is powered
  bool busSeen_ = false;
  bool left_ = false;
  Registration application_;
  Registration advertisement_;
  std::string failure_;  ///< the last one reported; empty after a success
  std::optional<std::string> aliasBefore_;

  bool away_ = false;
  std::chrono::nanoseconds absence_{};
  std::uint64_t loss_ = 0;  ///< the latest loss of the link
  int disconnecting_ = 0;   ///< its pending calls of Disconnect
  main_queue::Timer awayTimer_;

  bluez::StatusReport statusReport_;
  bluez::Retry retry_;
  bluez::Bus::Opening opening_;  ///< set while the bus is being opened
  // Destroyed in reverse: first the daemon with its pending replies, then the objects, then the bus
  // that they are exported on.
  std::unique_ptr<bluez::Bus> bus_;
  std::unique_ptr<GattApplication> gatt_;
  std::unique_ptr<Advertisement> advert_;
  bluez::Daemon daemon_;
};

}  // namespace Zephly::peripheral
