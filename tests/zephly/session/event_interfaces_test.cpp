// SPDX-License-Identifier: MIT
// The order of operations in the virtual tables, and the default of an operation that is not
// implemented.

#include <tests/support/virtual_slot.h>
#include <zephly/session/imu_delegate.h>
#include <zephly/session/workout_delegate.h>
#include <zephly/session/zephly_delegate.h>
#include <zephly/session/zephly_peripheral_delegate.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

TEST(EventInterfacesTest, SlotsOfZephlyPeripheralDelegate) {
  EXPECT_EQ(virtualSlot(&ZephlyPeripheralDelegate::didConnectPeripheral), 0);
  EXPECT_EQ(virtualSlot(&ZephlyPeripheralDelegate::didDisconnectPeripheral), 1);
  EXPECT_EQ(virtualSlot(&ZephlyPeripheralDelegate::didReceiveTemperature), 2);
  EXPECT_EQ(virtualSlot(&ZephlyPeripheralDelegate::didReceiveECG), 3);
  EXPECT_EQ(virtualSlot(&ZephlyPeripheralDelegate::didReceiveRespiration), 4);
  EXPECT_EQ(virtualSlot(&ZephlyPeripheralDelegate::didReceiveBatteryStatus), 5);
  EXPECT_EQ(virtualSlot(&ZephlyPeripheralDelegate::didReceiveIMUValues), 6);
}

TEST(EventInterfacesTest, SlotsOfZephlyDelegate) {
  EXPECT_EQ(virtualSlot(&ZephlyDelegate::didChangeLeadoffState), 0);
  EXPECT_EQ(virtualSlot(&ZephlyDelegate::didConnectPeripheral), 1);
  EXPECT_EQ(virtualSlot(&ZephlyDelegate::didDisconnectPeripheral), 2);
  EXPECT_EQ(virtualSlot(&ZephlyDelegate::didReceiveTemperature), 3);
  EXPECT_EQ(virtualSlot(&ZephlyDelegate::didReceiveECG), 4);
  EXPECT_EQ(virtualSlot(&ZephlyDelegate::didReceiveRespiration), 5);
  EXPECT_EQ(virtualSlot(&ZephlyDelegate::didReceiveBatteryStatus), 6);
}

TEST(EventInterfacesTest, SlotsOfWorkoutDelegate) {
  EXPECT_EQ(virtualSlot(&WorkoutDelegate::didDetectPushUp), 0);
  EXPECT_EQ(virtualSlot(&WorkoutDelegate::didDetectSitUp), 1);
  EXPECT_EQ(virtualSlot(&WorkoutDelegate::didDetectJump), 2);
}

TEST(EventInterfacesTest, SlotOfIMUDelegate) {
  EXPECT_EQ(virtualSlot(&IMUDelegate::didReceiveIMUValues), 0);
}

TEST(EventInterfacesDeathTest, AnExerciseThatTheReceiverDoesNotImplementIsFatal) {
  class Indifferent : public WorkoutDelegate {};
  Indifferent receiver;
  EXPECT_DEATH(receiver.didDetectPushUp(), "does not implement didDetectPushUp");
  EXPECT_DEATH(receiver.didDetectSitUp(), "does not implement didDetectSitUp");
  EXPECT_DEATH(receiver.didDetectJump(), "does not implement didDetectJump");
}

TEST(EventInterfacesTest, AValueMayImplementIMUDelegate) {
  struct Value : IMUDelegate {
    explicit Value(int* calls) : calls_(calls) {}
    void didReceiveIMUValues(float, float, float, float, float, float, float, float,
                             float) override {
      ++*calls_;
    }
    int* calls_;
  };
  int calls = 0;
  const Value value(&calls);
  const std::shared_ptr<IMUDelegate> held = std::make_shared<Value>(value);
  held->didReceiveIMUValues(1, 2, 3, 4, 5, 6, 7, 8, 9);
  EXPECT_EQ(calls, 1);
}

}  // namespace
