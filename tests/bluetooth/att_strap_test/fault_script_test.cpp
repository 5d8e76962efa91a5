// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/fault_script.h>

#include <gtest/gtest.h>

namespace {

using namespace Zephly::att_strap;
using Reaction = FaultScript::Reaction;

TEST(FaultScriptTest, AnswersEverythingByDefault) {
  FaultScript faults;
  faults.linkBegins();
  for (const Step step : {Step::connection, Step::discovery, Step::subscription, Step::other}) {
    EXPECT_EQ(faults.reactionTo(step), Reaction::answer);
  }
}

TEST(FaultScriptTest, StaysFrozenAcrossLinksUntilItIsThawed) {
  FaultScript faults;
  faults.setFrozen(true);
  faults.linkBegins();
  EXPECT_EQ(faults.reactionTo(Step::other), Reaction::ignore);
  faults.linkEnds();
  faults.linkBegins();
  EXPECT_EQ(faults.reactionTo(Step::other), Reaction::ignore);
  faults.setFrozen(false);
  EXPECT_EQ(faults.reactionTo(Step::other), Reaction::answer);
}

TEST(FaultScriptTest, FreezesFromAStepToTheEndOfThatLink) {
  FaultScript faults;
  faults.freezeAt(Step::subscription);
  faults.linkBegins();
  EXPECT_EQ(faults.reactionTo(Step::discovery), Reaction::answer);
  EXPECT_EQ(faults.reactionTo(Step::subscription), Reaction::ignore);
  EXPECT_EQ(faults.reactionTo(Step::other), Reaction::ignore);
  faults.linkEnds();
  faults.linkBegins();
  EXPECT_EQ(faults.reactionTo(Step::subscription), Reaction::answer);
}

TEST(FaultScriptTest, DropsOnceAtItsStep) {
  FaultScript faults;
  faults.dropAt(Step::connection);
  faults.linkBegins();
  EXPECT_EQ(faults.reactionTo(Step::connection), Reaction::drop);
  faults.linkEnds();
  faults.linkBegins();
  EXPECT_EQ(faults.reactionTo(Step::connection), Reaction::answer);
}

TEST(FaultScriptTest, AppliesACommandFromTheNextLinkOn) {
  FaultScript faults;
  faults.linkBegins();
  faults.dropAt(Step::subscription);
  faults.freezeAt(Step::discovery);
  EXPECT_EQ(faults.reactionTo(Step::subscription), Reaction::answer);
  EXPECT_EQ(faults.reactionTo(Step::discovery), Reaction::answer);
  faults.linkEnds();
  faults.linkBegins();
  EXPECT_EQ(faults.reactionTo(Step::discovery), Reaction::ignore);
  EXPECT_EQ(faults.reactionTo(Step::subscription), Reaction::drop);
}

}  // namespace
