// SPDX-License-Identifier: MIT
// The strap's advertising, on a controller that accepts every command.
//
// The emulator reports an advertiser once each time that it is switched on, and reports legacy
// advertising only to legacy scans.

#include <hosts/main_queue/main_queue.h>
#include <tests/bluetooth/att_strap/advertiser.h>
#include <tests/bluetooth/att_strap/controller.h>
#include <tests/bluetooth/att_strap/hci_packets.h>
#include <tests/support/turn_until.h>

#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace {

using namespace Zephly::att_strap;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;
using testing::Pair;
using Zephly::main_queue::FileDescriptor;
using Zephly::main_queue::Interest;
using Zephly::main_queue::MainQueue;
using Zephly::main_queue::Watch;

constexpr std::uint16_t enableAdvertising = 0x200A;
// Legacy advertising (Bluetooth 4): parameters, data, scan response, on and off.
constexpr std::uint16_t firstLegacy = 0x2005;
constexpr std::uint16_t lastLegacy = 0x200A;

class AdvertiserTest : public testing::Test {
 protected:
  AdvertiserTest() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    far_ = FileDescriptor(ends[1]);
    controller =
        std::make_unique<Controller>(queue, FileDescriptor(ends[0]),
                                     Controller::Handlers{[](std::uint8_t, BytesView) {},
                                                          [](std::uint16_t, BytesView) {}, [] {}});
    watch_ = queue.watch(far_.get(), Interest::read, [this] { answer(); });
  }

  std::size_t switchedOn() const {
    return static_cast<std::size_t>(
        std::count(commands.begin(), commands.end(), std::pair(enableAdvertising, true)));
  }

  MainQueue queue;
  std::unique_ptr<Controller> controller;
  /// Commands, and whether their first parameter is 1.
  using Commands = std::vector<std::pair<std::uint16_t, bool>>;
  Commands commands;
  /// The same, grouped by read.
  std::vector<Commands> goes;

 private:
  // A command is 01, its opcode, the length of its parameters, and the parameters.
  void answer() {
    std::array<std::uint8_t, 512> buffer{};
    const ssize_t count = ::read(far_.get(), buffer.data(), buffer.size());
    received_.insert(received_.end(), buffer.begin(), buffer.begin() + std::max<ssize_t>(count, 0));
    const std::size_t before = commands.size();
    while (received_.size() >= 4 && received_.size() >= 4U + received_[3]) {
      const std::size_t length = 4U + received_[3];
      const auto number = static_cast<std::uint16_t>(received_[1] | received_[2] << 8U);
      commands.emplace_back(number, length > 4 && received_[4] == 1);
      const std::array<std::uint8_t, 7> complete = {0x04,         0x0E,         4, 1,
                                                    received_[1], received_[2], 0};
      EXPECT_EQ(::write(far_.get(), complete.data(), complete.size()), 7);
      received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(length));
    }
    goes.emplace_back(commands.begin() + static_cast<std::ptrdiff_t>(before), commands.end());
  }

  FileDescriptor far_;
  std::vector<std::uint8_t> received_;
  Watch watch_;
};

TEST_F(AdvertiserTest, SwitchesAdvertisingOnRepeatedly) {
  Advertiser advertiser(queue, *controller, true, "Zephly");
  advertiser.start();
  EXPECT_TRUE(turnUntil(queue, [&] { return switchedOn() >= 4; }));
}

TEST_F(AdvertiserTest, StaysOffAfterStop) {
  Advertiser advertiser(queue, *controller, true, "Zephly");
  advertiser.start();
  EXPECT_TRUE(turnUntil(queue, [&] { return switchedOn() >= 2; }));
  advertiser.stop();
  EXPECT_TRUE(
      turnUntil(queue, [&] { return commands.back() == std::pair(enableAdvertising, false); }));
}

TEST_F(AdvertiserTest, SwitchesOffAndOnInOneStep) {
  Advertiser advertiser(queue, *controller, true, "Zephly");
  advertiser.start();
  EXPECT_TRUE(turnUntil(queue, [&] { return switchedOn() >= 3; }));
  const auto isSwitch = [](const auto& command) { return command.first == enableAdvertising; };
  for (const auto& together : goes) {
    if (std::none_of(together.begin(), together.end(), isSwitch)) continue;
    EXPECT_THAT(together,
                ElementsAre(Pair(enableAdvertising, false), Pair(enableAdvertising, true)));
  }
}

TEST_F(AdvertiserTest, SendsLegacyCommandsOnly) {
  Advertiser advertiser(queue, *controller, true, "Zephly");
  advertiser.start();
  EXPECT_TRUE(turnUntil(queue, [&] { return switchedOn() >= 2; }));
  std::vector<std::uint16_t> numbers;
  for (const auto& [number, on] : commands) numbers.push_back(number);
  EXPECT_THAT(numbers, Each(AllOf(Ge(firstLegacy), Le(lastLegacy))));
}

}  // namespace
