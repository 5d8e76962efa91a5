// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A fake `org.bluez`: adapters, devices and GATT objects that behave like BlueZ 5.66 was observed
/// to, unless a test changes it; or, on request, like 5.82.
///
///   FakeBluez bluez(queue, bus.address());
///   bluez.start();
///   FakeDevice& strap = bluez.addDevice();
///   bluez.advertise(strap);                              // reported while an adapter discovers
///   bluez.notify(strap, ecgUUID, {1, 2, 3});             // to subscribers
///   bluez.dropLink(strap);
///
/// All messages are sent before a call returns; the other side handles them when the queue runs.

#include <hosts/main_queue/file_descriptor.h>
#include <tests/support/fake_bluez/fake_service.h>

#include <deque>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace fake_bluez {

struct CharacteristicTraits {
  std::string uuid;
  std::vector<std::string> flags = {"notify"};
};

struct ServiceTraits {
  std::string uuid;
  std::vector<CharacteristicTraits> characteristics;
};

/// Two services with the five characteristics of the strap's profile and a foreign one.
std::vector<ServiceTraits> strapServices();

struct DeviceTraits {
  std::string address = "AA:BB:CC:DD:EE:01";
  std::optional<std::string> name = "Zephly";
  std::vector<ServiceTraits> services = strapServices();
  std::string adapter = "hci0";
};

/// The steps of a connection, in order.
enum class ConnectStep {
  connected,      ///< the signal Connected=true
  reply,          ///< the reply to Connect(), if it is pending
  objects,        ///< services and characteristics appear, unless they are there
  resolved,       ///< the signal with UUIDs and ServicesResolved=true
  resolvedEmpty,  ///< the same with no services
  hold,           ///< the rest waits for proceed()
};

/// The defaults.
inline const std::vector<ConnectStep> usualConnection = {
    ConnectStep::connected, ConnectStep::reply, ConnectStep::objects, ConnectStep::resolved};

/// The order of signals and reply when Disconnect() ends a connection.
enum class DisconnectStep { signal, reply, hold };

struct FakeCharacteristic {
  CharacteristicTraits traits;
  std::string path;
  std::set<std::string> subscribers;              ///< senders of StartNotify, kept over reconnects
  Zephly::main_queue::FileDescriptor descriptor;  ///< our end of what AcquireNotify gave out
};

struct FakeDevice {
  DeviceTraits traits;
  bool inRange = true;  ///< otherwise Connect() waits until it advertises
  bool connected = false;
  std::int16_t rssi = -60;
  std::vector<ConnectStep> onConnect = usualConnection;
  std::vector<DisconnectStep> onDisconnect = {DisconnectStep::signal, DisconnectStep::reply};

  std::deque<ConnectStep> connecting;  ///< the remaining steps
  std::deque<DisconnectStep> disconnecting;
  std::vector<CallPointer> waiting;    ///< Connect() calls without a reply
  std::vector<CallPointer> departing;  ///< Disconnect() calls without a reply
  std::list<FakeCharacteristic> characteristics;

  std::string path() const;
};

class FakeBluez final : public FakeService {
 public:
  FakeBluez(Zephly::main_queue::MainQueue& queue, std::string address);

  // The daemon.

  enum class Version { v5_66, v5_82 };
  /// Differences of 5.82: when it ends, its adapter may be off before the links have ended;
  /// switching an adapter off removes the devices with a pending Connect(), which is never
  /// answered; a failed attempt to connect to a silent device removes the device.
  void behaveAs(Version version) { version_ = version; }

  /// Takes its bus name. The adapters appear, powered or not.
  void start(bool powered = true);
  /// Ends as by SIGTERM: removes its objects first.
  void terminate();
  void kill() override;

  // Adapters.

  void addAdapter(const std::string& name, const std::string& address, bool powered = true);
  /// Removes the adapter with all its objects. Its devices return with an adapter of that address.
  void removeAdapter(const std::string& name);
  void power(const std::string& name, bool on);
  bool discovering(const std::string& name = "hci0");
  static std::string adapterPath(const std::string& name) { return "/org/bluez/" + name; }

  // Devices.

  FakeDevice& addDevice(DeviceTraits traits = {});
  /// Reports the device if its adapter discovers, and returns whether it does. Completes a waiting
  /// Connect().
  bool advertise(FakeDevice& device);
  /// Shows the device without an advertisement, as from the cache.
  void show(FakeDevice& device);
  /// Continues after a `hold`.
  void proceed(FakeDevice& device);
  /// Connects without a call of a client.
  void connectByItself(FakeDevice& device);
  /// A waiting Connect() fails.
  void failConnect(FakeDevice& device, const std::string& text = "le-connection-abort-by-local");
  /// Ends the link; newer daemons report the reason by a signal first.
  void dropLink(FakeDevice& device, const std::optional<std::string>& reason = std::nullopt);
  /// Removes the object.
  void forget(FakeDevice& device);
  /// The GAP Device Name was read.
  void gapName(FakeDevice& device, const std::string& name);

  // Values.

  /// Sends a value to the subscribers; returns whether there were any.
  bool notify(FakeDevice& device, const std::string& uuid, const Bytes& bytes);
  /// Sends the signal of a value regardless of subscriptions.
  void emitValue(FakeDevice& device, const std::string& uuid, const Bytes& bytes);
  static FakeCharacteristic* characteristic(FakeDevice& device, const std::string& uuid);
  /// Whether its values have a receiver.
  static bool subscribed(FakeDevice& device, const std::string& uuid);

  std::list<FakeDevice>& devices() { return devices_; }

 protected:
  void perform(const CallPointer& call) override;
  void setProperty(const CallPointer& call) override;
  void peerLeft(const std::string& peer) override;

 private:
  struct Adapter {
    std::string name;
    std::string address;
    std::set<std::string> discoverers;
  };

  void performOnAdapter(const CallPointer& call, Adapter& adapter);
  void performOnDevice(const CallPointer& call, FakeDevice& device);
  void performOnCharacteristic(const CallPointer& call, FakeDevice& device,
                               FakeCharacteristic& characteristic);
  void startNotify(const CallPointer& call, FakeCharacteristic& characteristic);
  void stopNotify(const CallPointer& call, FakeCharacteristic& characteristic);
  void acquireNotify(const CallPointer& call, FakeCharacteristic& characteristic);
  void connect(const CallPointer& call, FakeDevice& device);
  void disconnect(const CallPointer& call, FakeDevice& device);
  void begin(FakeDevice& device);
  void step(FakeDevice& device, ConnectStep step);
  void step(FakeDevice& device, DisconnectStep step);
  void resolve(FakeDevice& device, bool empty);
  void addGattObjects(FakeDevice& device);
  void lose(FakeDevice& device);
  void showAdapter(Adapter& adapter, bool powered);
  void stopDiscovery(Adapter& adapter);
  bool powered(const std::string& adapter);
  Adapter* adapterAt(const std::string& path);
  FakeDevice* deviceAt(const std::string& path);

  std::list<Adapter> adapters_;
  std::list<FakeDevice> devices_;
  Version version_ = Version::v5_66;
};

}  // namespace fake_bluez
