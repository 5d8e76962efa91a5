// SPDX-License-Identifier: MIT
// The built program with a strap on a fake bluetoothd.

#include <hosts/main_queue/main_queue.h>
#include <simulator/strap.h>
#include <tests/support/fake_bluez/fake_bluez.h>
#include <tests/support/fake_bluez/private_bus.h>
#include <tests/support/process.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using fake_bluez::FakeBluez;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Zephly::Stream;

// In bluetoothd's notation.
std::string uuidOf(Stream stream) {
  std::string uuid = Zephly::characteristicUUID(stream).UUIDString();
  std::transform(uuid.begin(), uuid.end(), uuid.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return uuid;
}

class BluetoothSessionTest : public testing::TestWithParam<std::string> {
 protected:
  BluetoothSessionTest() {
    bus.start();
    bluez.start();
  }

  // Serves the bus and the program's output until the condition holds.
  void turnUntil(Process& process, const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (!condition()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << process.outputSoFar();
      if (queue.poll() > 0) continue;
      std::array<pollfd, 2> ready = {
          {{.fd = queue.descriptor(), .events = POLLIN, .revents = 0},
           {.fd = process.descriptor(), .events = POLLIN, .revents = 0}}};
      ::poll(ready.data(), ready.size(), 1000);
    }
  }

  void connect(Process& process) {
    turnUntil(process, [this] { return bluez.advertise(device); });
    turnUntil(process, [this] {
      return std::all_of(
          Zephly::allStreams.begin(), Zephly::allStreams.end(),
          [this](Stream stream) { return FakeBluez::subscribed(device, uuidOf(stream)); });
    });
  }

  // Sends and counts the frames of one second.
  void send() {
    for (const auto end = *strap.nextFrameTime() + 1s; *strap.nextFrameTime() < end;) {
      const Zephly::simulator::Frame frame = strap.nextFrame();
      ASSERT_TRUE(bluez.notify(device, uuidOf(frame.stream), frame.bytes));
      sent[frame.stream] += Zephly::streamInfo(frame.stream).samplesPerFrame;
    }
  }

  Zephly::main_queue::MainQueue queue;
  fake_bluez::PrivateBus bus;
  FakeBluez bluez{queue, bus.address()};
  fake_bluez::FakeDevice& device = bluez.addDevice();
  Zephly::simulator::Strap strap;
  std::map<Stream, int> sent;
};

int eventsWritten(const Process& process, const std::string& event) {
  int count = 0;
  for (const std::string& line : linesOf(process.outputSoFar())) {
    if (line.find(R"("event":")" + event + '"') != std::string::npos) ++count;
  }
  return count;
}

TEST_P(BluetoothSessionTest, DeliversEverythingReportsLossesAndReleasesTheStrap) {
  Process process({"monitor", "--bus", bus.address(), "--adapter", "hci0", "--notifications",
                   GetParam(), "--json"});
  connect(process);
  send();
  turnUntil(process, [&] {
    return process.hasWritten("\"ecg\"") && eventsWritten(process, "ecg") == sent[Stream::ecg] &&
           eventsWritten(process, "motion") == sent[Stream::motion];
  });
  bluez.dropLink(device, "org.bluez.Reason.Timeout");
  turnUntil(process, [&] { return process.hasWritten("\"disconnected\""); });
  connect(process);
  send();
  turnUntil(process, [&] {
    return process.hasWritten("\"connected\"") &&
           eventsWritten(process, "ecg") == sent[Stream::ecg] &&
           eventsWritten(process, "motion") == sent[Stream::motion];
  });
  process.sendSignal(SIGINT);
  turnUntil(process, [&] { return process.hasWritten("\"summary\""); });
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.errors, IsEmpty());
  EXPECT_THAT(run.output, HasSubstr("Bluetooth: adapter hci0 is ready."));

  const json summary = json::parse(run.outputLines().back());
  for (const Stream stream : Zephly::allStreams) {
    const std::string name(Zephly::streamInfo(stream).name);
    EXPECT_EQ(summary.at("streams").at(name).at("delivered"), sent[stream]) << name;
    EXPECT_TRUE(summary.at("streams").at(name).contains("longestGap")) << name;
  }
  EXPECT_EQ(summary.at("connections"), 2);
  ASSERT_THAT(summary.at("linkLosses"), SizeIs(1));
  EXPECT_GT(summary.at("linkLosses").at(0).at("recovery").get<double>(), 0);
  EXPECT_THAT(summary.at("linkLosses").at(0).at("reason").get<std::string>(), HasSubstr("Timeout"));
  while (queue.poll() > 0) continue;
  EXPECT_FALSE(device.connected);
  EXPECT_FALSE(bluez.discovering());
}

TEST_P(BluetoothSessionTest, ReportsMissingPrerequisitesAgainAfterAChange) {
  Process process({"monitor", "--bus", bus.address(), "--notifications", GetParam()});
  turnUntil(process, [&] { return process.hasWritten("adapter hci0 is ready"); });
  bluez.power("hci0", false);
  turnUntil(process, [&] { return process.hasWritten("adapter hci0 is switched off"); });
  bluez.power("hci0", true);
  connect(process);
  turnUntil(process, [&] { return process.hasWritten("\"connected\""); });
  EXPECT_EQ(eventsWritten(process, "host"), 3);
  process.sendSignal(SIGTERM);
  turnUntil(process, [&] { return process.hasWritten("\"summary\""); });
  EXPECT_EQ(process.finish().exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(Notifications, BluetoothSessionTest,
                         testing::Values("signals", "descriptors"),
                         [](const auto& instance) { return instance.param; });

}  // namespace
