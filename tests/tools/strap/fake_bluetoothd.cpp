// SPDX-License-Identifier: MIT
#include <tests/tools/strap/fake_bluetoothd.h>

#include <algorithm>
#include <utility>

using fake_bluez::Interfaces;

namespace {

constexpr const char* adapterInterface = "org.bluez.Adapter1";
constexpr const char* deviceInterface = "org.bluez.Device1";

}  // namespace

FakeBluetoothd::FakeBluetoothd(Zephly::main_queue::MainQueue& queue, std::string address)
    : FakeService(queue, std::move(address), "org.bluez") {}

void FakeBluetoothd::addAdapter(const std::string& name, bool powered, bool able,
                                const std::string& address) {
  Interfaces interfaces{
      {adapterInterface, {{"Address", address}, {"Alias", "workstation"}, {"Powered", powered}}}};
  if (able) {
    interfaces["org.bluez.GattManager1"];
    interfaces["org.bluez.LEAdvertisingManager1"];
  }
  add("/org/bluez/" + name, std::move(interfaces));
}

void FakeBluetoothd::power(bool on, const std::string& name) {
  change("/org/bluez/" + name, adapterInterface, {{"Powered", on}});
}

void FakeBluetoothd::connect(const std::string& device) {
  if (!exists(device)) add(device, {{deviceInterface, {{"Connected", false}}}});
  change(device, deviceInterface, {{"Connected", true}});
}

void FakeBluetoothd::disconnect(const std::string& device) {
  change(device, deviceInterface, {{"Connected", false}});
}

std::vector<std::string> FakeBluetoothd::recordedCalls() const {
  std::vector<std::string> texts;
  for (std::size_t i = forgotten_; i < log().size(); ++i) {
    const fake_bluez::Call& call = *log()[i];
    if (call.method == "GetManagedObjects") continue;
    texts.push_back(call.path.substr(call.path.rfind('/') + 1) + " " + call.method +
                    (call.arguments.empty() ? "" : " " + call.arguments));
  }
  return texts;
}

bool FakeBluetoothd::wasCalled(const std::string& call) const {
  const auto all = recordedCalls();
  return std::find(all.begin(), all.end(), call) != all.end();
}

std::string FakeBluetoothd::applicant() const {
  const auto call = lastCall("RegisterApplication");
  return call == nullptr ? std::string() : call->sender;
}
