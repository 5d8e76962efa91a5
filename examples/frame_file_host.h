// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A host written from scratch: a radio that is always on, and one strap in its reach that sends
/// what notify() is given. docs/writing-a-host.md says what a host must do.

#include <hosts/foundation/data.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/platform/host.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace frame_file {

template <class Object>
using List = std::optional<std::vector<std::shared_ptr<Object>>>;
using UUIDs = std::optional<std::vector<CBUUID>>;
using Options = std::optional<CBOptions>;
using CentralDelegate = CBCentralManagerDelegate;

/// The main queue: every callback of the host runs from here, never from inside a call of the kit.
using Queue = std::deque<std::function<void()>>;

/// Makes all calls, those too that they lead to.
inline void run(Queue& queue) {
  for (; !queue.empty(); queue.pop_front()) queue.front()();
}

struct Characteristic final : CBCharacteristic {
  explicit Characteristic(const CBUUID& identifier) : uuid(identifier) {}
  CBUUID UUID() const override { return uuid; }
  std::shared_ptr<const NSData> value() const override { return current; }
  std::string description() const override { return "characteristic " + uuid.UUIDString(); }
  CBUUID uuid;
  bool subscribed = false;
  std::shared_ptr<const NSData> current;
};

struct Service final : CBService {
  CBUUID UUID() const override { return CBUUID::UUIDWithString("180D"); }
  List<CBCharacteristic> characteristics() const override { return list; }
  std::vector<std::shared_ptr<CBCharacteristic>> list;
};

/// The strap: one service with the five characteristics. Every question gets its answer.
class Strap final : public CBPeripheral {
 public:
  explicit Strap(Queue& queue) : queue_(queue) {
    for (const CBUUID& uuid : ::characteristics()) {
      service_->list.push_back(std::make_shared<Characteristic>(uuid));
    }
  }
  std::optional<std::string> name() const override { return std::string(peripheralName); }
  List<CBService> services() const override { return {{service_}}; }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> to) override { delegate_ = std::move(to); }
  void discoverServices(const UUIDs& /*uuids*/) override {
    post([self = self()](auto& to) { to.peripheralDidDiscoverServices(self, nullptr); });
  }
  void discoverCharacteristics(const UUIDs& /*uuids*/,
                               const std::shared_ptr<CBService>& service) override {
    post([self = self(), service](auto& to) {
      to.peripheralDidDiscoverCharacteristicsForService(self, service, nullptr);
    });
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<CBCharacteristic>& which) override {
    std::static_pointer_cast<Characteristic>(which)->subscribed = enabled;
    post([self = self(), which](auto& to) {
      to.peripheralDidUpdateNotificationStateForCharacteristic(self, which, nullptr);
    });
  }
  /// The strap has sent a value.
  void notify(const CBUUID& uuid, const std::vector<std::uint8_t>& bytes) {
    for (const auto& one : service_->list) {
      const auto own = std::static_pointer_cast<Characteristic>(one);
      if (own->uuid != uuid || !own->subscribed) continue;
      post([self = self(), own, data = Zephly::hosts::Data::of(bytes)](auto& to) {
        own->current = data;  // inside the call, value() is the one that it announces
        to.peripheralDidUpdateValueForCharacteristic(self, own, nullptr);
      });
    }
  }

 private:
  std::shared_ptr<Strap> self() { return std::static_pointer_cast<Strap>(shared_from_this()); }
  void post(const std::function<void(CBPeripheralDelegate&)>& what) {
    queue_.push_back([self = self(), what] {
      if (const auto to = self->delegate_.lock()) what(*to);
    });
  }
  Queue& queue_;
  std::shared_ptr<Service> service_ = std::make_shared<Service>();
  std::weak_ptr<CBPeripheralDelegate> delegate_;
};

/// The radio. It reports its state first; when asked to scan it reports the strap.
class Central final : public CBCentralManager {
 public:
  Central(Queue& queue, std::shared_ptr<Strap> strap, std::weak_ptr<CentralDelegate> delegate)
      : queue_(queue), strap_(std::move(strap)), delegate_(std::move(delegate)) {}
  CBManagerState state() const override { return CBManagerState::poweredOn; }
  void begin() {
    post([self = self()](auto& to) { to.centralManagerDidUpdateState(self); });
  }
  void scanForPeripheralsWithServices(const UUIDs& /*uuids*/, const Options& /*options*/) override {
    post([self = self()](auto& to) {
      to.centralManagerDidDiscoverPeripheral(self, self->strap_, {self->strap_->name(), {}}, -50);
    });
  }
  void connectPeripheral(const std::shared_ptr<CBPeripheral>& which,
                         const Options& /*options*/) override {
    if (std::exchange(connected_, true)) return;  // connected already: no second callback
    post([self = self(), which](auto& to) { to.centralManagerDidConnectPeripheral(self, which); });
  }

 private:
  std::shared_ptr<Central> self() { return std::static_pointer_cast<Central>(shared_from_this()); }
  void post(const std::function<void(CentralDelegate&)>& what) {
    queue_.push_back([self = self(), what] {
      if (const auto to = self->delegate_.lock()) what(*to);
    });
  }
  Queue& queue_;
  std::shared_ptr<Strap> strap_;
  std::weak_ptr<CentralDelegate> delegate_;
  bool connected_ = false;
};

/// In use while it lives. The queue must outlive the session.
struct FrameFileHost final : Zephly::Host {
  explicit FrameFileHost(Queue& calls) : queue(calls) { Zephly::Host::use(this); }
  ~FrameFileHost() override { Zephly::Host::leave(this); }
  std::shared_ptr<CBCentralManager> createCentralManager(std::weak_ptr<CentralDelegate> delegate,
                                                         DispatchQueue* /*queue*/,
                                                         const Options& /*options*/) override {
    const auto central = std::make_shared<Central>(queue, strap, std::move(delegate));
    central->begin();
    return central;
  }
  Queue& queue;
  std::shared_ptr<Strap> strap = std::make_shared<Strap>(queue);
};

}  // namespace frame_file
