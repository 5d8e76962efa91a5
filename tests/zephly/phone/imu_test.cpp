// SPDX-License-Identifier: MIT
#include <zephly/phone/imu.h>

#include <zephly/platform/ns_object.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

namespace {

struct Sensors : CMMotionManager {};

struct Receiver : IMUDelegate {
  MOCK_METHOD(void, didReceiveIMUValues,
              (float, float, float, float, float, float, float, float, float), (override));
};

// A delegate that is a value: its copies share a state.
struct ValueReceiver : IMUDelegate {
  void didReceiveIMUValues(float, float, float, float, float, float, float, float, float) override {
  }
  std::shared_ptr<int> copies = std::make_shared<int>(0);
};

TEST(IMUTest, IsAnObjectWithIdentityButNoMessages) {
  static_assert(!std::is_base_of_v<NSObject, IMU>);
  static_assert(!std::is_copy_constructible_v<IMU>);
  static_assert(!std::is_copy_assignable_v<IMU>);
  static_assert(!std::is_polymorphic_v<IMU>);
}

TEST(IMUTest, HoldsItsManagerUntilDestruction) {
  auto manager = std::make_shared<Sensors>();
  const std::weak_ptr<Sensors> watch = manager;
  auto imu = std::make_shared<IMU>(std::move(manager));
  const std::shared_ptr<IMU> other = imu;
  imu.reset();
  EXPECT_FALSE(watch.expired());
}

TEST(IMUTest, ReleasesItsManagerWithoutADelegate) {
  auto manager = std::make_shared<Sensors>();
  const std::weak_ptr<Sensors> watch = manager;
  auto imu = std::make_shared<IMU>(std::move(manager));
  imu.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(IMUTest, OwnsItsDelegateAndReleasesItWithoutCallingIt) {
  auto receiver = std::make_shared<testing::StrictMock<Receiver>>();
  EXPECT_CALL(*receiver, didReceiveIMUValues).Times(0);
  const std::weak_ptr<IMUDelegate> watch = receiver;
  auto imu = std::make_shared<IMU>(std::make_shared<Sensors>(), std::move(receiver));
  EXPECT_FALSE(watch.expired());
  imu.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(IMUTest, ItsDelegateMayBeACopyOfAValue) {
  const ValueReceiver value;
  auto imu =
      std::make_shared<IMU>(std::make_shared<Sensors>(), std::make_shared<ValueReceiver>(value));
  EXPECT_EQ(value.copies.use_count(), 2);
  imu.reset();
  EXPECT_EQ(value.copies.use_count(), 1);
}

TEST(IMUTest, DoesNotDestroyASharedManager) {
  const auto manager = std::make_shared<Sensors>();
  auto imu = std::make_shared<IMU>(manager);
  EXPECT_EQ(manager.use_count(), 2);
  imu.reset();
  EXPECT_EQ(manager.use_count(), 1);
}

TEST(IMUDeathTest, AnEmptyManagerIsFatal) {
  EXPECT_DEATH(IMU(nullptr), "IMU was given no CMMotionManager");
}

}  // namespace
