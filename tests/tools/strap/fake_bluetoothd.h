#pragma once
/// @file
/// The side of bluetoothd that a peripheral meets: adapters with the two managers, devices that
/// are connected or not.

#include <tests/support/fake_bluez/fake_service.h>

#include <cstddef>
#include <string>
#include <vector>

class FakeBluetoothd final : public fake_bluez::FakeService {
 public:
  static constexpr const char* adapterAddress = "00:00:00:00:00:0A";
  static constexpr const char* central = "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF";

  FakeBluetoothd(Zephly::main_queue::MainQueue& queue, std::string address);

  /// Takes the name, with the objects that are there.
  void start() { run(); }

  void addAdapter(const std::string& name = "hci0", bool powered = true, bool able = true,
                  const std::string& address = adapterAddress);
  void power(bool on, const std::string& name = "hci0");
  /// The device appears with its connection, or changes it.
  void connect(const std::string& device = central);
  void disconnect(const std::string& device = central);
  using FakeService::add;
  using FakeService::remove;

  /// "hci0 RegisterApplication /org/zephly/strap {}", all but the reading of objects, since
  /// forget(); the part before the method is the last one of the path.
  std::vector<std::string> recordedCalls() const;
  void forget() { forgotten_ = log().size(); }
  bool wasCalled(const std::string& call) const;
  /// The connection that has registered an application last; empty when there was none.
  std::string applicant() const;

 private:
  void perform(const fake_bluez::CallPointer& call) override { reply(call); }
  void setProperty(const fake_bluez::CallPointer& call) override { reply(call); }
  void peerLeft(const std::string& /*peer*/) override {}

  std::size_t forgotten_ = 0;  ///< entries of the log
};
