// SPDX-License-Identifier: MIT
// The observer of the kit beside its console, for whole sessions on the simulated radio.

#include <hosts/simulated/device.h>
#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <tests/support/captured_output.h>
#include <tests/support/recorded_events.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/platform/observer.h>
#include <zephly/protocol/streams.h>
#include <zephly/session/zephly.h>

#include <gtest/gtest.h>

#include <chrono>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace Zephly::simulated;
using Zephly::Stream;

// Writes every fact as the console should have it, and counts them by kind.
class FactLog final : public Zephly::Observer {
 public:
  FactLog() : before_(Zephly::setObserver(this)) { lines_.imbue(std::locale::classic()); }
  FactLog(const FactLog&) = delete;
  FactLog& operator=(const FactLog&) = delete;
  ~FactLog() { Zephly::setObserver(before_); }

  void didTraceMotion(const Zephly::MotionTrace& fact) override { note(fact, traces); }
  void didFailToConnect(const Zephly::ConnectionFailure& fact) override { note(fact, failures); }
  void didLoseLink(const Zephly::LinkLoss& fact) override {
    note(fact, losses);
    reasons.emplace_back(fact.reason);
  }
  void didFailToDiscover(const Zephly::DiscoveryFailure& fact) override {
    note(fact, undiscovered);
  }
  void didFindCharacteristic(const Zephly::CharacteristicFound& fact) override {
    note(fact, characteristics);
    found.push_back(fact.characteristic.UUID());
  }
  void didFailToSubscribe(const Zephly::SubscriptionFailure& fact) override {
    note(fact, unsubscribed);
  }
  void didFailToRead(const Zephly::ReadFailure& fact) override { note(fact, unread); }

  std::string text() const { return lines_.str(); }

  int traces = 0;
  int failures = 0;
  int losses = 0;
  int undiscovered = 0;
  int characteristics = 0;
  int unsubscribed = 0;
  int unread = 0;
  std::vector<std::string> reasons;
  std::vector<CBUUID> found;

 private:
  template <class Fact>
  void note(const Fact& fact, int& count) {
    ++count;
    lines_ << fact << '\n';
  }

  std::ostringstream lines_;
  Zephly::Observer* before_;
};

class WholePathObserverTest : public testing::Test {
 protected:
  Device& addStrap() {
    Device& added = radio.addDevice({.name = "Zephly"});
    addStrapProfile(added);
    return added;
  }

  CapturedOutput output;
  FactLog facts;
  recorded::Log log;
  Scheduler scheduler;
  Radio radio{scheduler};
  Device& device = addStrap();
  Zephly::simulator::Strap wearer{{.seed = 3}};
  std::shared_ptr<recorded::Application> application = std::make_shared<recorded::Application>(log);
  std::shared_ptr<recorded::Workout> workout = std::make_shared<recorded::Workout>(log);
  std::shared_ptr<::Zephly::Zephly> session = ::Zephly::Zephly::init(application);
};

TEST_F(WholePathObserverTest, TheFactsOfATrainingAreTheLinesOfTheConsole) {
  session->startWorkoutDetection(workout);
  StrapDevice strap(device, wearer);
  strap.loseLinksOf(wearer.plan());
  scheduler.advance(61s);
  EXPECT_EQ(facts.text(), output.text());
  EXPECT_GT(facts.traces, 1500);
  EXPECT_EQ(facts.losses, 2);
  EXPECT_EQ(facts.reasons.at(0), "The connection has timed out unexpectedly.");
  EXPECT_EQ(facts.characteristics, 15) << "five in each of three connections";
}

TEST_F(WholePathObserverTest, TheFactsOfFailuresAreTheLinesOfTheConsole) {
  device.nextConnects(2, ConnectBehaviour::fails("busy"));
  device.setSubscription(characteristicUUID(Stream::battery),
                         SubscriptionAnswer::refuses("Not permitted."));
  scheduler.advance(3s);
  device.notifyError(characteristicUUID(Stream::ecg), "No value.");
  device.loseLink("Out of reach.");
  scheduler.advance(3s);
  device.loseLink(std::nullopt);
  scheduler.advance(3s);
  EXPECT_EQ(facts.text(), output.text());
  EXPECT_EQ(facts.failures, 2);
  EXPECT_EQ(facts.unsubscribed, 3);
  EXPECT_EQ(facts.unread, 1);
  EXPECT_EQ(facts.reasons, std::vector<std::string>{"Out of reach."});
  EXPECT_EQ(facts.found.size(), 15U);
}

}  // namespace
