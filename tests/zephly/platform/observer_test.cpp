// SPDX-License-Identifier: MIT
#include <zephly/platform/observer.h>

#include <tests/support/captured_output.h>
#include <tests/support/fake_bluetooth.h>
#include <zephly/platform/report.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace Zephly {
namespace {

using testing::ElementsAre;

template <class Fact>
std::string lineOf(const Fact& fact) {
  std::ostringstream line;
  line << fact;
  return line.str();
}

// An observer that is installed during its lifetime. It records the console's text at each call.
class Watch final : public Observer {
 public:
  explicit Watch(const CapturedOutput& output) : output_(output), before_(setObserver(this)) {}
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() { setObserver(before_); }

  void didTraceMotion(const MotionTrace& fact) override {
    values.push_back(fact.displacement);
    console.push_back(output_.text());
  }

  std::vector<float> values;
  std::vector<std::string> console;

 private:
  const CapturedOutput& output_;
  Observer* before_;
};

TEST(ObserverTest, ThereIsNoneAtFirst) {
  const CapturedOutput output;
  EXPECT_EQ(observer(), nullptr);
  report(MotionTrace{1, 2}, &Observer::didTraceMotion);
  EXPECT_EQ(output.text(), "1, 2\n");
}

TEST(ObserverTest, ReceivesTheValueAfterItsLine) {
  const CapturedOutput output;
  Watch watch(output);
  report(MotionTrace{1, 0.123456789F}, &Observer::didTraceMotion);
  EXPECT_THAT(watch.values, ElementsAre(0.123456789F));
  EXPECT_THAT(watch.console, ElementsAre("1, 0.123457\n"));
}

TEST(ObserverTest, WorksWithoutAConsole) {
  const CapturedOutput output;
  Watch watch(output);
  std::streambuf* const buffer = std::cout.rdbuf(nullptr);
  report(MotionTrace{1, 2}, &Observer::didTraceMotion);
  std::cout.rdbuf(buffer);
  EXPECT_THAT(watch.values, ElementsAre(2));
  EXPECT_EQ(output.text(), "");
}

TEST(ObserverTest, SettingReturnsTheOneBefore) {
  const CapturedOutput output;
  Watch first(output);
  {
    Watch second(output);
    EXPECT_EQ(observer(), &second);
  }
  EXPECT_EQ(observer(), &first);
  EXPECT_EQ(setObserver(nullptr), &first);
  EXPECT_EQ(observer(), nullptr);
}

TEST(ObserverTest, AnObserverNeedsToOverrideNothing) {
  const CapturedOutput output;
  struct Nothing final : Observer {
  } nothing;
  Observer* const before = setObserver(&nothing);
  report(ConnectionFailure{}, &Observer::didFailToConnect);
  report(LinkLoss{"gone"}, &Observer::didLoseLink);
  setObserver(before);
  EXPECT_EQ(output.text(), "didFailToConnectPeripheral\ndidDisconnectPeripheral: gone\n");
}

TEST(ObserverTest, EveryFactIsALine) {
  const fake::Characteristic characteristic(CBUUID::UUIDWithString("2A19"));
  EXPECT_EQ(lineOf(MotionTrace{-1234567, 0.5F}), "-1.23457e+06, 0.5");
  EXPECT_EQ(lineOf(ConnectionFailure{}), "didFailToConnectPeripheral");
  EXPECT_EQ(lineOf(LinkLoss{"too far"}), "didDisconnectPeripheral: too far");
  EXPECT_EQ(lineOf(DiscoveryFailure{"a\t\"b\"\x01"}), "Error: Optional(\"a\\t\\\"b\\\"\\u{01}\")");
  EXPECT_EQ(lineOf(CharacteristicFound{characteristic, "one"}), "one");
  EXPECT_EQ(lineOf(SubscriptionFailure{characteristic, "refused"}),
            "00002A19-0000-1000-8000-00805F9B34FB Error changing notification state: refused");
  EXPECT_EQ(lineOf(ReadFailure{"no value"}), "Error reading characteristics: no value");
}

}  // namespace
}  // namespace Zephly
