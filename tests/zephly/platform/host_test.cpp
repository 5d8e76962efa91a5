// SPDX-License-Identifier: MIT
#include <zephly/platform/host.h>

#include <tests/support/fake_bluetooth.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

namespace {

TEST(HostTest, TheCurrentHostCreatesTheCentral) {
  fake::World world;
  const auto central = CBCentralManager::init({}, nullptr, std::nullopt);
  EXPECT_EQ(central, world.central);
  EXPECT_EQ(world.log, fake::Log{"create central"});
}

TEST(HostTest, TheLatestHostIsCurrent) {
  fake::World first;
  fake::World second;
  EXPECT_EQ(Zephly::Host::current(), &second);
}

TEST(HostTest, LeavingDoesNotAffectAnotherCurrentHost) {
  fake::World stays;
  { const fake::World goes; }
  EXPECT_EQ(Zephly::Host::current(), nullptr);
  Zephly::Host::use(&stays);
  const fake::World other;
  Zephly::Host::use(&stays);
  Zephly::Host::leave(&other);
  EXPECT_EQ(Zephly::Host::current(), &stays);
}

TEST(HostDeathTest, WithoutAHostTheErrorListsTheHostsOfTheBuild) {
  ASSERT_EQ(Zephly::Host::current(), nullptr);
  EXPECT_DEATH(CBCentralManager::init({}, nullptr, std::nullopt),
               "no host is in use; .*this build has: " ZEPHLY_HOSTS);
}

TEST(HostDeathTest, AHostThatCreatesNoCentralIsFatal) {
  class Empty : public Zephly::Host {
   public:
    Empty() { Zephly::Host::use(this); }
    std::shared_ptr<CBCentralManager> createCentralManager(
        std::weak_ptr<CBCentralManagerDelegate>, DispatchQueue*,
        const std::optional<CBOptions>&) override {
      return nullptr;
    }
  };
  EXPECT_DEATH(
      {
        Empty host;
        CBCentralManager::init({}, nullptr, std::nullopt);
      },
      "created no central manager");
}

}  // namespace
