#pragma once
/// @file
/// The side of bluetoothd that a peripheral meets: adapters with the two managers, devices that
/// are connected or not. Lives on the test's main queue, on a bus connection that is not the code
/// under test's.

#include <tests/bluez/bus_connection.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class FakeBluetoothd {
 public:
  static constexpr const char* adapterAddress = "00:00:00:00:00:0A";
  static constexpr const char* central = "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF";

  FakeBluetoothd(Zephly::main_queue::MainQueue& queue, std::string address)
      : queue_(queue), address_(std::move(address)) {}

  /// Takes the name, with the objects that are there.
  void start();
  /// As by SIGKILL: everything goes, the bus alone tells it.
  void kill();

  void addAdapter(const std::string& name = "hci0", bool powered = true, bool able = true,
                  const std::string& address = adapterAddress);
  void power(bool on, const std::string& name = "hci0");
  /// The device appears with its connection, or changes it.
  void connect(const std::string& device = central);
  void disconnect(const std::string& device = central);
  /// The object goes, and all below it.
  void remove(const std::string& path);
  /// Anything else.
  void add(const std::string& path, fake_bluez::Interfaces interfaces);

  /// The next call of the method is refused.
  void refuse(const std::string& method, const std::string& errorName, const std::string& text);
  /// Calls of the method get no answer until release().
  void hold(const std::string& method) { held_[method]; }
  void release(const std::string& method);
  /// Every reply without contents gets this body.
  fake_bluez::Writer oddReply;

  /// "hci0 RegisterApplication /org/zephly/strap {}", all but the reading of objects, since the
  /// last time; the part before the method is the last one of the path.
  std::vector<std::string> takeCalls() { return std::exchange(calls_, {}); }
  const std::vector<std::string>& calls() const { return calls_; }
  /// The connection that has registered an application last.
  const std::string& applicant() const { return applicant_; }
  bool wasCalled(const std::string& call) const;

 private:
  struct Refusal {
    std::string name;
    std::string text;
  };

  bool incoming(sd_bus_message& message);
  void answer(sd_bus_message& call);
  void change(const std::string& path, const std::string& interface,
              const fake_bluez::Properties& properties);

  Zephly::main_queue::MainQueue& queue_;
  std::string address_;
  std::unique_ptr<fake_bluez::BusConnection> connection_;
  std::map<std::string, fake_bluez::Interfaces> objects_;
  std::map<std::string, std::deque<Refusal>> refusals_;
  std::map<std::string, std::vector<fake_bluez::Message>> held_;
  std::vector<std::string> calls_;
  std::string applicant_;
};
