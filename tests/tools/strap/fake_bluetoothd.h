// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A fake bluetoothd for a peripheral: adapters with the two managers, and connected or
/// disconnected devices.

#include <tests/support/fake_bluez/fake_service.h>

#include <cstddef>
#include <string>
#include <vector>

class FakeBluetoothd final : public fake_bluez::FakeService {
 public:
  static constexpr const char* adapterAddress = "00:00:00:00:00:0A";
  static constexpr const char* central = "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF";

  FakeBluetoothd(Zephly::main_queue::MainQueue& queue, std::string address);

  /// Takes the bus name and exports its objects.
  void start() { run(); }

  void addAdapter(const std::string& name = "hci0", bool powered = true, bool able = true,
                  const std::string& address = adapterAddress);
  void power(bool on, const std::string& name = "hci0");
  /// Adds the device as connected, or connects it.
  void connect(const std::string& device = central);
  void disconnect(const std::string& device = central);
  using FakeService::add;
  using FakeService::remove;

  /// "hci0 RegisterApplication /org/zephly/strap {}", all but the reading of objects, since
  /// forget(); the part before the method is the last one of the path.
  std::vector<std::string> recordedCalls() const;
  void forget() { forgotten_ = log().size(); }
  bool wasCalled(const std::string& call) const;
  /// The connection that registered the latest application; empty when there was none.
  std::string applicant() const;

 private:
  void perform(const fake_bluez::CallPointer& call) override { reply(call); }
  void setProperty(const fake_bluez::CallPointer& call) override { reply(call); }
  void peerLeft(const std::string& /*peer*/) override {}

  std::size_t forgotten_ = 0;  ///< entries of the log
};
