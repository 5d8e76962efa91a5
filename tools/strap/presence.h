#pragma once
/// @file
/// Keeps the strap on the air: its GATT application and its advertisement registered with
/// bluetoothd, on the adapter that was asked for, through restarts of bluetoothd, adapters that are
/// switched off and on, and adapters that come and go.
///
///   Presence presence(queue, {.adapter = "hci0"}, listener);
///   presence.carry(frame);        // to who has subscribed
///   presence.loseLink(2s);        // disconnects, and comes back
///
/// Nothing waits and nothing throws: what does not work is told in one line, and tried again after
/// a pause that grows to a few seconds.

#include <hosts/bluez/adapter_choice.h>
#include <hosts/bluez/bus.h>
#include <hosts/bluez/daemon.h>
#include <hosts/bluez/retry.h>
#include <hosts/bluez/timing.h>
#include <hosts/main_queue/main_queue.h>
#include <simulator/frame.h>
#include <simulator/transmitter.h>
#include <tools/strap/advertisement.h>
#include <tools/strap/centrals.h>
#include <tools/strap/gatt_application.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::peripheral {

struct PresenceOptions {
  std::string adapter = {};  ///< "hci0", an address, or empty for any
  std::string name = {};     ///< advertised
  bool setAlias = false;     ///< gives the adapter that name, until the end
  std::string bus = {};      ///< D-Bus address; empty: the system bus
  bluez::Timing timing = {};
};

/// Is told by turns of the queue.
class PresenceListener {
 public:
  virtual ~PresenceListener() = default;

  /// Something has happened: one line for people.
  virtual void said(std::string_view line) = 0;
  virtual void subscriptionChanged(simulator::Stream stream, bool subscribed) = 0;
  virtual void centralChanged(const std::string& name, bool connected) = 0;
  /// There is no bus, and never was one: nothing can come of it.
  virtual void hopeless(const std::string& reason) = 0;

 protected:
  PresenceListener() = default;
  PresenceListener(const PresenceListener&) = default;
  PresenceListener& operator=(const PresenceListener&) = default;
};

class Presence final : public simulator::Carrier, private bluez::DaemonListener {
 public:
  /// Begins at once. `listener` must outlive it.
  Presence(main_queue::MainQueue& queue, PresenceOptions options, PresenceListener& listener);
  Presence(const Presence&) = delete;
  Presence& operator=(const Presence&) = delete;

  bool isSubscribed(simulator::Stream stream) const override;
  /// False while the strap is away.
  bool carry(simulator::Frame frame) override;

  /// Disconnects who is connected and does not advertise before `absence` has passed since. While
  /// it is away already, it stays away for `absence` from now on.
  void loseLink(std::chrono::nanoseconds absence);

  /// Takes everything back and disconnects, without waiting for either to happen (only, for a
  /// moment, for the bus to take it over). Nothing happens any more.
  void leave();

 private:
  /// Of an object of ours with bluetoothd.
  struct Registration {
    enum class State { none, asked, done };

    const char* what = "";       ///< for people
    const char* interface = "";  ///< of the manager
    const char* enter = "";      ///< its method
    const char* withdraw = "";   ///< its method
    const char* path = "";
    State state = State::none;
    std::uint64_t attempt = 0;  ///< so that late replies mean nothing
  };

  void daemonChanged() override;
  void objectChanged(const bluez::ObjectChange& change) override;
  void deviceHeard(const std::string& /*path*/) override {}
  void valueArrived(const std::string& /*path*/, const bluez::Bytes& /*value*/) override {}
  void disconnectionExplained(const std::string& /*path*/, const std::string& /*reason*/) override {
  }

  void update();
  void useAdapter(const std::string& adapter);
  void setReady(bool ready);
  void proceed();
  bool openBus();
  void busLost();
  void enter(Registration& registration);
  void entered(Registration& registration);
  void withdraw(Registration& registration);
  void failed(const std::string& what, const std::string& reason);
  void setAlias();
  void restoreAlias();
  void beAway();
  void tell(const std::string& path, const char* interface, const char* method,
            const bluez::Arguments& arguments);
  void say(const std::string& line) { listener_.said(line); }
  std::string adapterName() const;
  void report();
  void reportNow();
  std::string situation() const;

  main_queue::MainQueue& queue_;
  PresenceOptions options_;
  PresenceListener& listener_;
  bluez::AdapterChoice choice_;
  Centrals centrals_;
  std::string adapter_;  ///< path; empty when there is none
  bool ready_ = false;   ///< there is one and it is switched on
  bool busSeen_ = false;
  bool left_ = false;
  Registration application_;
  Registration advertisement_;
  std::string failure_;  ///< as it was told last; empty when all is well
  std::optional<std::string> aliasBefore_;

  bool away_ = false;
  std::chrono::nanoseconds absence_{};
  std::uint64_t loss_ = 0;  ///< the latest loss of the link
  int disconnecting_ = 0;   ///< calls of that loss without an answer
  main_queue::Timer awayTimer_;

  std::string reported_;
  main_queue::Timer reportTimer_;
  bluez::Retry retry_;
  // The objects go before their bus, and the service's replies before what they concern.
  std::unique_ptr<bluez::Bus> bus_;
  std::unique_ptr<GattApplication> gatt_;
  std::unique_ptr<Advertisement> advert_;
  bluez::Daemon daemon_;
};

}  // namespace Zephly::peripheral
