// SPDX-License-Identifier: MIT
// A whole session, from the host boundary to the application, with all callbacks of a host in any
// order: for any device, connected or not, requested or not, and with delegates that are replaced
// and released at any time, also from within their own calls.
//
// Excluded, because they are documented fatal errors or forbidden to hosts:
// - an absent list of services or characteristics while its discovery is answered (fatal; a
//   discovery that found nothing has an empty list),
// - a value for a destroyed session (fatal; only tests destroy sessions),
// - a workout delegate that does not implement an operation (fatal),
// - calls from inside the creation of the central, and null objects.

#include <tests/support/fake_bluetooth.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/session_test_access.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/motion/madgwick_ahrs.h>
#include <zephly/zephly.h>
#include <fuzz/support/input.h>
#include <fuzz/support/quiet.h>
#include <fuzz/support/reclaim.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace {

using fuzz::Input;
using fuzz::require;
using Zephly::hosts::Data;

// The calls that the application has received.
struct Received {
  int connections = 0;
  int disconnections = 0;
  int ecg = 0;
  int respiration = 0;
  int temperatures = 0;
  int batteries = 0;
  std::optional<bool> leadoff;
  bool left = false;  ///< the session's application has been released
};

class Application : public ZephlyDelegate {
 public:
  explicit Application(Received& received) : received_(received) {}

  void didChangeLeadoffState(bool leadoff) override {
    listens();
    require(received_.leadoff != leadoff, "contact is reported when it changes");
    received_.leadoff = leadoff;
    leave(0);
  }
  void didConnectPeripheral() override {
    listens();
    ++received_.connections;
    leave(1);
  }
  void didDisconnectPeripheral() override {
    listens();
    ++received_.disconnections;
    leave(2);
  }
  void didReceiveTemperature(float, float, float body) override {
    listens();
    require(body == 0, "body temperature is not estimated");
    ++received_.temperatures;
    leave(3);
  }
  void didReceiveECG(float sample) override {
    listens();
    require(std::abs(sample) <= 2.42F, "ECG within full scale");
    ++received_.ecg;
    leave(4);
  }
  void didReceiveRespiration(float sample) override {
    listens();
    require(sample >= 0 && sample <= 1, "respiration of 0 to 1");
    require(received_.leadoff.has_value(), "contact is reported first");
    ++received_.respiration;
    leave(5);
  }
  void didReceiveBatteryStatus(BatteryStatus) override {
    listens();
    ++received_.batteries;
    leave(6);
  }

  static constexpr unsigned calls = 7;
  std::optional<unsigned> leavesAt;  ///< released during the call with this number
  std::shared_ptr<Application>* owner = nullptr;

 private:
  // The receiver may change between any two calls, also between two samples of a frame.
  void listens() const { require(!received_.left, "a released application gets no calls"); }
  void leave(unsigned call) {
    if (leavesAt != call) return;
    received_.left = true;
    owner->reset();
  }

  Received& received_;
};

class Workout : public WorkoutDelegate {
 public:
  void didDetectPushUp() override { leave(); }
  void didDetectSitUp() override { leave(); }
  void didDetectJump() override { leave(); }

  std::shared_ptr<Workout>* leaving = nullptr;

 private:
  void leave() {
    if (leaving != nullptr) std::exchange(leaving, nullptr)->reset();
  }
};

const std::array<CBUUID, 6>& identifiers() {
  static const std::array<CBUUID, 6> all = {
      ecgCharacteristicUUID(),     respirationCharacteristicUUID(), temperatureCharacteristicUUID(),
      batteryCharacteristicUUID(), motionCharacteristicUUID(),      CBUUID::UUIDWithString("2A29")};
  return all;
}

class Session {
 public:
  // Starts without a link, or in the state that most inputs reach.
  explicit Session(std::uint8_t start) {
    q0 = 1;
    q1 = q2 = q3 = 0;
    constexpr std::array<const char*, 3> names = {"Zephly", "zephly", nullptr};
    for (const char* name : names) {
      peripherals_.push_back(
          world_.peripheral(name == nullptr ? std::nullopt : std::optional<std::string>(name)));
    }
    for (const CBUUID& uuid : identifiers()) {
      characteristics_.push_back(std::make_shared<fake::Characteristic>(uuid));
    }
    service_->setCharacteristics(
        fake::Service::List(std::in_place, characteristics_.begin(), characteristics_.end()));
    session_ = reclaim_.during([this] { return Zephly::Zephly::init(application_); });
    manager_ = world_.delegate.lock();
    require(manager_ != nullptr, "a central manager");
    application_->owner = &application_;
    if ((start & 1U) != 0) {
      manager_->centralManagerDidConnectPeripheral(world_.central, peripherals_.front());
    }
    if ((start & 2U) != 0) application_->leavesAt = (start >> 2U) % Application::calls;
  }
  ~Session() { SessionTestAccess::release(*session_); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void step(Input& input) {
    world_.log.clear();
    const unsigned operation = input.below(24);
    if (operation < 8) return value(input);
    switch (operation) {
      case 8:
        world_.central->current = static_cast<CBManagerState>(input.below(6));
        return manager_->centralManagerDidUpdateState(world_.central);
      case 9:
        return discover(input);
      case 10:
      case 11:
        return connect(input);
      case 12:
        return manager_->centralManagerDidFailToConnectPeripheral(world_.central, anyDevice(input),
                                                                  anyError(input));
      case 13:
        return disconnect(input);
      case 14:
        return answerServices(input);
      case 15:
        return answerCharacteristics(input);
      case 16:
        return answerSubscription(input);
      case 17:
      case 18:
        return phone(input);
      case 19:
        return replaceWorkout(input);
      case 20:
        return dropApplication(input);
      case 21:
        FakeProcessorClock::now += input.number<std::uint16_t>() * 1000ULL;
        return;
      default:
        return motion(input);
    }
  }

 private:
  std::shared_ptr<fake::Peripheral> anyDevice(Input& input) {
    return peripherals_.at(input.below(static_cast<unsigned>(peripherals_.size())));
  }
  std::shared_ptr<fake::Characteristic> anyCharacteristic(Input& input) {
    return characteristics_.at(input.below(static_cast<unsigned>(characteristics_.size())));
  }
  static std::shared_ptr<const NSError> anyError(Input& input) {
    return input.coin() ? fake::RawError::of(input.text(12)) : nullptr;
  }

  void discover(Input& input) {
    CBAdvertisementData advertisement;
    if (input.coin()) advertisement.localName = input.text(8);
    const auto device = anyDevice(input);
    manager_->centralManagerDidDiscoverPeripheral(world_.central, device, advertisement,
                                                  input.number<int>());
    const std::size_t requests = world_.central->requested.size();
    require(requests == (device == peripherals_.front() ? 1U : 0U), "the strap is asked for");
    world_.central->requested.clear();
  }

  void connect(Input& input) {
    const int before = received_.connections;
    const bool listening = application_ != nullptr;
    manager_->centralManagerDidConnectPeripheral(world_.central, anyDevice(input));
    require(received_.connections == before + (listening ? 1 : 0), "a connection is reported");
  }

  void disconnect(Input& input) {
    const int before = received_.disconnections;
    const bool listening = application_ != nullptr;
    const auto lost = anyDevice(input);
    manager_->centralManagerDidDisconnectPeripheral(world_.central, lost, anyError(input));
    require(received_.disconnections == before + (listening ? 1 : 0),
            "a disconnection is reported");
    require(world_.central->requested.size() == 1 && world_.central->requested.front() == lost,
            "a lost device is asked for again");
    world_.central->requested.clear();
  }

  void answerServices(Input& input) {
    const auto device = anyDevice(input);
    const unsigned count = input.below(4);
    device->list.emplace();
    for (unsigned i = 0; i < count; ++i) device->list->push_back(service_);
    if (const auto handler = device->delegate.lock()) {
      handler->peripheralDidDiscoverServices(device, anyError(input));
      require(world_.log.size() == count, "the characteristics of each service are asked for");
    }
  }

  void answerCharacteristics(Input& input) {
    const auto device = anyDevice(input);
    const auto service = std::make_shared<fake::Service>("180A");
    fake::Service::List list(std::in_place);
    unsigned known = 0;
    for (unsigned count = input.below(9); count > 0; --count) {
      const auto one = anyCharacteristic(input);
      if (one != characteristics_.back()) ++known;
      list->push_back(one);
    }
    service->setCharacteristics(std::move(list));
    if (const auto handler = device->delegate.lock()) {
      handler->peripheralDidDiscoverCharacteristicsForService(device, service, anyError(input));
      require(world_.log.size() == known, "the strap's characteristics are subscribed to");
    }
  }

  void answerSubscription(Input& input) {
    const auto device = anyDevice(input);
    const auto characteristic = anyCharacteristic(input);
    if (const auto handler = device->delegate.lock()) {
      handler->peripheralDidUpdateNotificationStateForCharacteristic(device, characteristic,
                                                                     anyError(input));
    }
  }

  void value(Input& input) {
    const auto device = anyDevice(input);
    const auto characteristic = anyCharacteristic(input);
    if (characteristic == characteristics_.at(1) && respirationFrames_-- <= 0) return;
    const std::uint8_t flags = input.byte();
    const auto error = flags % 16 == 0 ? anyError(input) : nullptr;
    characteristic->setValue(flags % 16 == 1 ? nullptr : Data::of(input.bytes(24)));
    const auto handler = device->delegate.lock();
    if (!handler) return;
    const Received before = received_;
    const bool leaves = application_ != nullptr && application_->leavesAt.has_value();
    const bool delivered = application_ != nullptr && !error && characteristic->value();
    handler->peripheralDidUpdateValueForCharacteristic(device, characteristic, error);
    const auto is = [&](std::size_t index) { return characteristic == characteristics_.at(index); };
    if (leaves) return;
    require(received_.ecg - before.ecg == (delivered && is(0) ? 6 : 0), "six ECG samples");
    require(received_.respiration - before.respiration == (delivered && is(1) ? 6 : 0),
            "six respiration samples");
    require(received_.temperatures - before.temperatures == (delivered && is(2) ? 1 : 0),
            "temperature");
    require(received_.batteries - before.batteries == (delivered && is(3) ? 1 : 0), "battery");
  }

  // One frame many times: a torso at rest or in motion.
  void motion(Input& input) {
    const auto device = anyDevice(input);
    const auto handler = device->delegate.lock();
    const auto& characteristic = characteristics_.at(4);
    const auto bytes = input.bytes(24);
    for (unsigned times = input.below(32); handler && times > 0; --times) {
      characteristic->setValue(Data::of(bytes));
      handler->peripheralDidUpdateValueForCharacteristic(device, characteristic, nullptr);
    }
  }

  void phone(Input& input) {
    std::array<float, 9> readings{};
    for (float& reading : readings) reading = input.real<float>();
    const auto [gx, gy, gz, ax, ay, az, mx, my, mz] = readings;
    phoneEvents(*session_).didReceiveIMUValues(gx, gy, gz, ax, ay, az, mx, my, mz);
  }

  void replaceWorkout(Input& input) {
    const unsigned how = input.below(4);
    if (how == 0) return workout_.reset();
    workout_ = std::make_shared<Workout>();
    if (how == 1) workout_->leaving = &workout_;
    session_->startWorkoutDetection(how == 2 ? nullptr : workout_);
  }

  void dropApplication(Input& input) {
    if (!application_) return;
    if (input.coin()) {
      application_->leavesAt = input.below(Application::calls);
    } else if (input.below(4) == 0) {
      application_.reset();
    }
  }

  fuzz::Reclaim reclaim_;
  fuzz::Quiet quiet_;
  FakeProcessorClock clock_;
  fake::World world_;
  Received received_;
  std::shared_ptr<Application> application_ = std::make_shared<Application>(received_);
  std::shared_ptr<Workout> workout_;
  std::vector<std::shared_ptr<fake::Peripheral>> peripherals_;
  std::vector<std::shared_ptr<fake::Characteristic>> characteristics_;
  std::shared_ptr<fake::Service> service_ = std::make_shared<fake::Service>("180D");
  int respirationFrames_ = 24;  // by far the most expensive
  std::shared_ptr<Zephly::Zephly> session_;
  std::shared_ptr<CBCentralManagerDelegate> manager_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Objects that are created once and kept must not be attributed to the session.
  struct First {
    fake::World world;
    std::shared_ptr<Zephly::Zephly> session = Zephly::Zephly::init(nullptr);
  };
  [[maybe_unused]] static const First* const first = new First;
  Input input(data, size);
  Session session(input.byte());
  while (!input.empty()) session.step(input);
  return 0;
}
