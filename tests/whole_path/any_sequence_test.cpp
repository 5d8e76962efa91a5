// SPDX-License-Identifier: MIT
// Random sequences of radio and strap events: the session never ends the program, reports
// connections and disconnections alternately, and delivers samples in order, without duplicates and
// without samples that were not sent over the link.

#include <hosts/simulated/radio.h>
#include <tests/support/captured_output.h>
#include <tests/support/session_test_access.h>
#include <tests/whole_path/counted_frames.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/zephly.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
namespace simulated = ::Zephly::simulated;

class Watching : public ZephlyDelegate {
 public:
  void didChangeLeadoffState(bool leadoff) override {
    EXPECT_NE(leadoff_, std::optional(leadoff)) << "reported without a change";
    leadoff_ = leadoff;
  }
  void didConnectPeripheral() override {
    EXPECT_FALSE(connected) << "reported twice";
    connected = true;
  }
  void didDisconnectPeripheral() override {
    EXPECT_TRUE(connected) << "reported without a connection";
    connected = false;
  }
  void didReceiveTemperature(float, float, float) override {}
  void didReceiveECG(float sample) override {
    EXPECT_TRUE(connected);
    samples.push_back(counted::count(sample));
  }
  void didReceiveRespiration(float) override { EXPECT_TRUE(leadoff_.has_value()); }
  void didReceiveBatteryStatus(BatteryStatus) override {}

  bool connected = false;
  std::vector<std::uint32_t> samples;

 private:
  std::optional<bool> leadoff_;
};

class AnySequence {
 public:
  explicit AnySequence(std::uint32_t seed) : random_(seed) {
    device_.addService({CBUUID::UUIDWithString("180A"), {{CBUUID::UUIDWithString("2A29")}}});
    addStrapProfile(device_);
    application_ = std::make_shared<Watching>();
    session_ = ::Zephly::Zephly::init(application_);
  }
  ~AnySequence() { SessionTestAccess::release(*session_); }
  AnySequence(const AnySequence&) = delete;
  AnySequence& operator=(const AnySequence&) = delete;

  void step() {
    const auto& actions = allActions();
    actions[number(actions.size())]();
    if (number(3) == 0) scheduler_.advance(std::chrono::milliseconds(number(400)));
  }

  // All faults end here: the session must recover without help.
  void recover() {
    radio_.setState(CBManagerState::poweredOn);
    device_.setName("Zephly");
    device_.setInRange(true);
    device_.setConnectBehaviour(simulated::ConnectBehaviour::succeeds());
    device_.setServiceDiscovery({});
    device_.setCharacteristicDiscovery({});
    device_.setSubscription({});
    scheduler_.advance(1min);
    device_.loseLink();  // failed and unanswered requests are repeated on the next link
    scheduler_.advance(1min);
    send();
    scheduler_.advance(1s);
  }

  void check() const {
    EXPECT_TRUE(application_->connected);
    ASSERT_EQ(application_->samples, carried_);
  }

 private:
  std::size_t number(std::size_t below) { return random_() % below; }
  bool coin() { return number(2) == 0; }
  std::optional<std::string> maybeError() {
    return coin() ? std::optional<std::string>("an \"error\"\n") : std::nullopt;
  }

  void send() {
    if (device_.notify(ecgCharacteristicUUID(), counted::frame(next_))) {
      for (std::uint32_t count = next_; count < next_ + 6; ++count) carried_.push_back(count);
    }
    next_ += 6;
  }

  void sendOther() {
    const auto& uuid = characteristics()[number(characteristics().size())];
    if (uuid.isEqual(ecgCharacteristicUUID())) return send();
    std::vector<std::uint8_t> bytes(number(40));
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random_());
    device_.notify(uuid, bytes);
  }

  const std::vector<std::function<void()>>& allActions() {
    using simulated::ConnectBehaviour;
    using simulated::DiscoveryAnswer;
    using simulated::SubscriptionAnswer;
    if (!actions_.empty()) return actions_;
    actions_ = {
        [this] { send(); },
        [this] { send(); },
        [this] { sendOther(); },
        [this] { device_.notifyError(ecgCharacteristicUUID(), "unreadable"); },
        [this] { device_.notifyAbsent(characteristics()[number(5)]); },
        [this] { device_.loseLink(maybeError()); },
        [this] { device_.setInRange(coin()); },
        [this] { radio_.setState(static_cast<CBManagerState>(number(6))); },
        [this] { radio_.setState(CBManagerState::poweredOn); },
        [this] { device_.setConnectBehaviour(ConnectBehaviour::succeeds(1ms * number(900))); },
        [this] { device_.nextConnects(1, ConnectBehaviour::fails("busy", 1ms * number(300))); },
        [this] { device_.setConnectBehaviour(ConnectBehaviour::never()); },
        [this] {
          device_.setServiceDiscovery(
              {.latency = 1ms * number(300),
               .times = static_cast<int>(number(3)),
               .error = maybeError(),
               .list = coin() ? DiscoveryAnswer::List::complete : DiscoveryAnswer::List::empty});
        },
        [this] {
          device_.setCharacteristicDiscovery({.latency = 1ms * number(300),
                                              .times = static_cast<int>(number(3)),
                                              .error = maybeError()});
        },
        [this] {
          device_.setSubscription(SubscriptionAnswer{.latency = 1ms * number(300),
                                                     .times = static_cast<int>(number(3)),
                                                     .error = maybeError()});
        },
        [this] { device_.setSubscription(SubscriptionAnswer::lateConfirmation(200ms)); },
        [this] { device_.setAdvertisesWhileConnected(coin()); },
        [this] { device_.setName(coin() ? "Zephly" : "zephly"); },
        [this] { scheduler_.advance(1s * number(5)); },
    };
    return actions_;
  }

  std::mt19937 random_;
  std::vector<std::function<void()>> actions_;
  CapturedOutput output_;
  simulated::Scheduler scheduler_;
  simulated::Radio radio_{scheduler_};
  simulated::Device& device_ = radio_.addDevice({.name = "Zephly"});
  std::uint32_t next_ = 0;
  std::vector<std::uint32_t> carried_;  // accepted by the link
  std::shared_ptr<Watching> application_;
  std::shared_ptr<::Zephly::Zephly> session_;
};

class AnySequenceTest : public testing::TestWithParam<std::uint32_t> {};

TEST_P(AnySequenceTest, SamplesArriveInOrderAndTheSessionRecovers) {
  AnySequence world(GetParam());
  for (int step = 0; step < 400; ++step) {
    world.step();
    if (HasFailure()) FAIL() << "step " << step;
  }
  world.recover();
  world.check();
}

INSTANTIATE_TEST_SUITE_P(Seeds, AnySequenceTest, testing::Range(1u, 101u));

}  // namespace
