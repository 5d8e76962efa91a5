// SPDX-License-Identifier: MIT
#include <hosts/foundation/observation.h>

#include <zephly/platform/report.h>

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

namespace Zephly::hosts {
namespace {

struct Reasons final : Observer {
  void didLoseLink(const LinkLoss& fact) override { all += std::string(fact.reason) + "\n"; }
  std::string all;
};

void loseLink(const char* reason) { report(LinkLoss{reason}, &Observer::didLoseLink); }

TEST(ObservationTest, TakesTheFactsAndTheConsoleWhileItLives) {
  std::streambuf* const before = std::cout.rdbuf();
  Reasons reasons;
  std::ostringstream console;
  {
    const Observation observation(reasons, console.rdbuf());
    loseLink("too far");
  }
  EXPECT_EQ(reasons.all, "too far\n");
  EXPECT_EQ(console.str(), "didDisconnectPeripheral: too far\n");
  EXPECT_EQ(std::cout.rdbuf(), before);
  EXPECT_EQ(observer(), nullptr);
}

TEST(ObservationTest, WithoutAConsoleItTakesTheFactsOnly) {
  Reasons reasons;
  {
    const Observation observation(reasons);
    EXPECT_EQ(std::cout.rdbuf(), nullptr);
    loseLink("too far");
  }
  EXPECT_EQ(reasons.all, "too far\n");
  EXPECT_TRUE(std::cout.good());
}

TEST(ObservationTest, OneInsideAnotherGivesBackTheOuterOne) {
  Reasons outer;
  Reasons inner;
  const Observation first(outer);
  {
    const Observation second(inner);
    loseLink("one");
  }
  loseLink("two");
  EXPECT_EQ(inner.all, "one\n");
  EXPECT_EQ(outer.all, "two\n");
}

}  // namespace
}  // namespace Zephly::hosts
