// SPDX-License-Identifier: MIT
#include <tools/watch/receiver.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/strap_time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <variant>
#include <vector>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;

class ReceiverTest : public testing::Test {
 protected:
  template <class What>
  const What& last() const {
    return std::get<What>(events_.back().what);
  }

  StrapTime now_ = 1s;
  std::vector<Event> events_;
  Receiver receiver_{[this] { return now_; },
                     [this](const Event& event) { events_.push_back(event); }};
};

TEST_F(ReceiverTest, TurnsEveryCallbackIntoOneEventWithItsTime) {
  receiver_.didConnectPeripheral();
  EXPECT_TRUE(std::holds_alternative<Connected>(events_.back().what));
  EXPECT_EQ(events_.back().time, 1s);
  now_ = 2s;
  receiver_.didDisconnectPeripheral();
  EXPECT_TRUE(std::holds_alternative<Disconnected>(events_.back().what));
  EXPECT_EQ(events_.back().time, 2s);
  receiver_.didChangeLeadoffState(true);
  EXPECT_TRUE(last<LeadOff>().off);
  receiver_.didReceiveTemperature(33, 22, 1);
  EXPECT_EQ(last<Temperature>().object, 33);
  EXPECT_EQ(last<Temperature>().ambient, 22);
  EXPECT_EQ(last<Temperature>().body, 1);
  receiver_.didReceiveBatteryStatus({50, true});
  EXPECT_EQ(last<Battery>().status, (BatteryStatus{50, true}));
  receiver_.didReceiveECG(0.5F);
  EXPECT_EQ(last<EcgSample>().value, 0.5F);
  receiver_.didReceiveRespiration(0.25F);
  EXPECT_EQ(last<RespirationSample>().value, 0.25F);
  receiver_.didDetectPushUp();
  EXPECT_EQ(last<Repetition>().exercise, Exercise::pushUp);
  receiver_.didDetectSitUp();
  EXPECT_EQ(last<Repetition>().exercise, Exercise::sitUp);
  receiver_.didDetectJump();
  EXPECT_EQ(last<Repetition>().exercise, Exercise::jump);
  EXPECT_EQ(events_.size(), 10U);
}

TEST_F(ReceiverTest, AHostLineIsASeparateEvent) {
  receiver_.hostLine("0.5, -1.5e-05");
  EXPECT_EQ(last<HostLine>().text, "0.5, -1.5e-05");
  EXPECT_EQ(events_.back().time, 1s);
}

TEST_F(ReceiverTest, TracesAreMotionSamplesAndOtherFactsAreDiagnostics) {
  receiver_.didTraceMotion({0.123456789F, -1.5e-05F});
  EXPECT_EQ(last<MotionSample>().highPassed, 0.123456789F);
  EXPECT_EQ(last<MotionSample>().displacement, -1.5e-05F);
  receiver_.didFailToConnect({});
  EXPECT_EQ(last<Diagnostic>().text, "didFailToConnectPeripheral");
  EXPECT_EQ(last<Diagnostic>().linkLossReason, std::nullopt);
  EXPECT_EQ(last<Diagnostic>().message, "the connection failed");
  receiver_.didLoseLink({"1, 2"});
  EXPECT_EQ(last<Diagnostic>().text, "didDisconnectPeripheral: 1, 2");
  EXPECT_EQ(last<Diagnostic>().linkLossReason, "1, 2");
  receiver_.didFailToDiscover({"a \"b\""});
  EXPECT_EQ(last<Diagnostic>().text, "Error: Optional(\"a \\\"b\\\"\")");
  EXPECT_EQ(last<Diagnostic>().message, "cannot read the strap's services: a \"b\"");
  receiver_.didFailToRead({"no value"});
  EXPECT_EQ(last<Diagnostic>().text, "Error reading characteristics: no value");
  EXPECT_EQ(last<Diagnostic>().message, "cannot read a notification: no value");
  EXPECT_EQ(events_.size(), 5U);
}

TEST_F(ReceiverTest, DropsEventsAfterTheEnd) {
  receiver_.endAt(1s);
  receiver_.didReceiveECG(1);
  EXPECT_EQ(events_.size(), 1U);
  now_ += 1ns;
  receiver_.didReceiveECG(1);
  EXPECT_EQ(events_.size(), 1U);
}

}  // namespace
}  // namespace Zephly::watch
