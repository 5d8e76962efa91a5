// SPDX-License-Identifier: MIT
// Frames written to a simulated strap's characteristics are delivered to the application's
// delegate.

#include <hosts/foundation/data.h>
#include <hosts/simulated/radio.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <tests/support/bits.h>
#include <tests/support/captured_output.h>
#include <tests/support/recorded_events.h>
#include <tests/support/recording.h>
#include <tests/support/session_test_access.h>
#include <tests/whole_path/counted_frames.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/protocol/streams.h>
#include <zephly/zephly.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
namespace simulated = ::Zephly::simulated;
namespace simulator = ::Zephly::simulator;

class WholePathTest : public testing::Test {
 protected:
  WholePathTest() { addStrapProfile(device); }
  void TearDown() override { SessionTestAccess::release(*session); }

  void sendECG(std::uint32_t first) {
    device.notify(ecgCharacteristicUUID(), counted::frame(first));
  }
  void expectCounts(std::uint32_t first, std::size_t number) {
    ASSERT_EQ(application->ecg.size(), number);
    for (std::size_t index = 0; index < number; ++index) {
      ASSERT_EQ(counted::count(application->ecg[index]), first + index);
    }
  }

  CapturedOutput output;
  recorded::Log log;
  simulated::Scheduler scheduler;
  simulated::Radio radio{scheduler};
  simulated::Device& device = radio.addDevice({.name = "Zephly"});
  std::shared_ptr<recorded::Application> application = std::make_shared<recorded::Application>(log);
  std::shared_ptr<::Zephly::Zephly> session = ::Zephly::Zephly::init(application);
};

TEST_F(WholePathTest, TheStrapIsFoundConnectedAndSubscribed) {
  scheduler.advance(1s);
  EXPECT_TRUE(device.connected());
  for (const CBUUID& uuid : characteristics()) EXPECT_TRUE(device.isSubscribed(uuid));
  EXPECT_THAT(log, ElementsAre("didConnectPeripheral"));
}

TEST_F(WholePathTest, NothingIsCalledDuringConstruction) {
  EXPECT_FALSE(device.connected());
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(WholePathTest, EachKindOfFrameArrives) {
  scheduler.advance(1s);
  log.clear();
  device.notify(temperatureCharacteristicUUID(), {0x43, 0x3A, 0, 0});
  device.notify(batteryCharacteristicUUID(), {0xE8, 0x03, 1});
  sendECG(0);
  device.notify(respirationCharacteristicUUID(), counted::frame(0));
  device.notify(motionCharacteristicUUID(),
                {0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0});
  scheduler.advance(1s);
  recorded::Log expected = {recorded::call("didReceiveTemperature", 25.149994f, -273.15f, 0),
                            "didReceiveBatteryStatus 100 true"};
  expected.insert(expected.end(), 6, "didReceiveECG");
  expected.emplace_back("didChangeLeadoffState true");
  expected.insert(expected.end(), 6, "didReceiveRespiration");
  EXPECT_EQ(log, expected);
  EXPECT_THAT(output.text(), testing::EndsWith("0, 0\n"));
}

TEST_F(WholePathTest, AllECGSamplesArriveOnceAndInOrder) {
  scheduler.advance(1s);
  for (std::uint32_t first = 0; first < 6000; first += 6) {
    sendECG(first);
    if (first % 60 == 0) scheduler.advance(1ms);
  }
  scheduler.advance(1s);
  expectCounts(0, 6000);
}

TEST_F(WholePathTest, StreamsResumeAfterEveryLossWithoutDuplicates) {
  std::uint32_t next = 0;
  for (int loss = 0; loss < 20; ++loss) {
    scheduler.advance(2s);
    ASSERT_TRUE(device.connected()) << "loss " << loss;
    sendECG(next);
    device.loseLink(loss % 2 == 0 ? std::optional<std::string>("timed out") : std::nullopt);
    next += 6;
  }
  scheduler.advance(2s);
  expectCounts(0, next);
  EXPECT_EQ(std::count(log.begin(), log.end(), "didConnectPeripheral"), 21);
  EXPECT_EQ(std::count(log.begin(), log.end(), "didDisconnectPeripheral"), 20);
  for (const CBUUID& uuid : characteristics()) EXPECT_TRUE(device.isSubscribed(uuid));
}

TEST_F(WholePathTest, OnlyALossWithAnErrorIsPrinted) {
  scheduler.advance(1s);
  const auto before = output.text().size();
  device.loseLink();
  scheduler.advance(0s);
  EXPECT_EQ(output.text().substr(before), "");
  scheduler.advance(1s);
  const auto after = output.text().size();
  device.loseLink("timed out");
  scheduler.advance(0s);
  EXPECT_EQ(output.text().substr(after), "didDisconnectPeripheral: timed out\n");
}

TEST_F(WholePathTest, ReconnectsWhenTheRadioIsSwitchedOffAndOn) {
  scheduler.advance(1s);
  radio.setState(CBManagerState::poweredOff);
  scheduler.advance(10s);
  EXPECT_FALSE(device.connected());
  radio.setState(CBManagerState::poweredOn);
  scheduler.advance(1s);
  EXPECT_TRUE(device.isSubscribed(ecgCharacteristicUUID()));
  EXPECT_THAT(
      log, ElementsAre("didConnectPeripheral", "didDisconnectPeripheral", "didConnectPeripheral"));
}

TEST_F(WholePathTest, PrintsAConnectionFailureAndRetriesOnTheNextAdvertisement) {
  device.nextConnects(3, simulated::ConnectBehaviour::fails("busy"));
  scheduler.advance(2s);
  EXPECT_TRUE(device.connected());
  EXPECT_THAT(output.text(), testing::StartsWith("didFailToConnectPeripheral\n"
                                                 "didFailToConnectPeripheral\n"
                                                 "didFailToConnectPeripheral\n<CBCharacteristic"));
  EXPECT_THAT(log, ElementsAre("didConnectPeripheral"));
}

TEST_F(WholePathTest, ADeviceWithAnotherNameIsNeverConnected) {
  auto& stranger = radio.addDevice({.name = "zephly"});
  addStrapProfile(stranger);
  auto& nameless = radio.addDevice();
  scheduler.advance(1min);
  EXPECT_FALSE(stranger.connected());
  EXPECT_FALSE(nameless.connected());
  EXPECT_TRUE(device.connected());
}

TEST_F(WholePathTest, ConnectsAnAbsentStrapHoursLater) {
  device.setInRange(false);
  scheduler.advance(5h);
  EXPECT_THAT(log, IsEmpty());
  device.setInRange(true);
  scheduler.advance(1s);
  EXPECT_TRUE(device.connected());
}

TEST_F(WholePathTest, ARefusedSubscriptionDoesNotAffectTheOthers) {
  device.setSubscription(ecgCharacteristicUUID(), simulated::SubscriptionAnswer::refuses("no"));
  scheduler.advance(1s);
  EXPECT_THAT(output.text(),
              testing::EndsWith("46366E80-CF3A-11E1-9AB4-0002A5D5C51B Error changing "
                                "notification state: no\n"));
  sendECG(0);
  device.notify(batteryCharacteristicUUID(), {1, 0, 0});
  scheduler.advance(1s);
  EXPECT_THAT(log, ElementsAre("didConnectPeripheral", "didReceiveBatteryStatus 0.1 false"));
}

TEST_F(WholePathTest, ValueErrorsAndAbsentValuesDeliverNothing) {
  scheduler.advance(1s);
  log.clear();
  device.notifyError(ecgCharacteristicUUID(), "broken");
  device.notifyAbsent(ecgCharacteristicUUID());
  scheduler.advance(1s);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_THAT(output.text(), testing::EndsWith("Error reading characteristics: broken\n"));
}

TEST_F(WholePathTest, FramesOfEveryLengthArrive) {
  scheduler.advance(1s);
  log.clear();
  for (std::size_t length = 0; length <= 512; ++length) {
    device.notify(ecgCharacteristicUUID(), std::vector<std::uint8_t>(length, 0x11));
  }
  scheduler.advance(1s);
  EXPECT_EQ(application->ecg.size(), 513u * 6);
}

using WholePathDeathTest = WholePathTest;

TEST_F(WholePathDeathTest, AnAbsentServiceListEndsTheProgram) {
  device.setServiceDiscovery({.list = simulated::DiscoveryAnswer::List::absent});
  EXPECT_DEATH(scheduler.advance(1s), "CBPeripheral.services is absent");
}

TEST_F(WholePathDeathTest, AnAbsentCharacteristicListEndsTheProgram) {
  device.setCharacteristicDiscovery({.list = simulated::DiscoveryAnswer::List::absent});
  EXPECT_DEATH(scheduler.advance(1s), "CBService.characteristics is absent");
}

// A simulated strap that sends by itself.

class WholePathSimulatedStrapTest : public WholePathTest {
 protected:
  void wear(const simulator::StrapOptions& options, simulated::Duration time) {
    simulator::Strap source(options);
    simulated::StrapDevice carrier(device, source);
    carrier.loseLinksOf(source.plan());
    scheduler.advance(time);
    for (const auto stream : Zephly::allStreams) sent.push_back(carrier.counts(stream).samplesSent);
    done = source.repetitionsDone(time);
  }
  std::uint64_t sentOn(Zephly::Stream stream) const {
    return sent[static_cast<std::size_t>(stream)];
  }
  std::ptrdiff_t eventCount(const std::string& event) const {
    return std::count_if(log.begin(), log.end(), [&event](const std::string& entry) {
      return entry.substr(0, entry.find(' ')) == event;
    });
  }

  std::vector<std::uint64_t> sent;
  Zephly::Repetitions done;
};

TEST_F(WholePathSimulatedStrapTest, ReportsEveryKindOfEventInHalfAMinuteOfTraining) {
  const auto workout = std::make_shared<recorded::Workout>(log);
  session->startWorkoutDetection(workout);
  wear({}, 32s);
  EXPECT_EQ(application->ecg.size(), sentOn(Zephly::Stream::ecg));
  EXPECT_EQ(application->respiration.size(), sentOn(Zephly::Stream::respiration));
  EXPECT_EQ(eventCount("didReceiveTemperature"), sentOn(Zephly::Stream::temperature));
  EXPECT_EQ(eventCount("didReceiveBatteryStatus"), sentOn(Zephly::Stream::battery));
  EXPECT_GT(application->ecg.size(), 25u * 500);
  EXPECT_GE(eventCount("didReceiveBatteryStatus"), 3);
  EXPECT_EQ(eventCount("didConnectPeripheral"), 2);
  EXPECT_EQ(eventCount("didDisconnectPeripheral"), 1);
  EXPECT_THAT(log, testing::Contains("didChangeLeadoffState true"));
  EXPECT_THAT(log, testing::Contains("didChangeLeadoffState false"));
  EXPECT_GT(done.pushUps * done.sitUps * done.jumps, 0);
  EXPECT_EQ(eventCount("didDetectPushUp"), done.pushUps);
  EXPECT_EQ(eventCount("didDetectSitUp"), done.sitUps);
  EXPECT_EQ(eventCount("didDetectJump"), done.jumps);
}

TEST_F(WholePathSimulatedStrapTest, DeliversTheStrapsNumbersBitForBit) {
  wear({.seed = 5, .plan = simulator::TrainingPlan::quiet()}, 10s);
  // The same strap again, decoded by hand, from its first delivered frame on.
  simulator::Strap again({.seed = 5, .plan = simulator::TrainingPlan::quiet()});
  std::vector<float> ecg;
  std::vector<float> respiration;
  while (*again.nextFrameTime() <= 10s) {
    const auto frame = again.nextFrame();
    if (frame.stream != Zephly::Stream::ecg && frame.stream != Zephly::Stream::respiration)
      continue;
    const ::Zephly::hosts::Data data(frame.bytes);
    auto& samples = frame.stream == Zephly::Stream::ecg ? ecg : respiration;
    for (const float sample : FrameDecoders::calculateECGValue(data)) samples.push_back(sample);
  }
  ASSERT_GT(application->ecg.size(), 9u * 500);
  const std::size_t missedECG = ecg.size() - application->ecg.size();
  for (std::size_t index = 0; index < application->ecg.size(); ++index) {
    ASSERT_SAME_BITS(application->ecg[index], ecg[missedECG + index]);
  }
  ::Zephly::SignalProcessor engine;
  const std::size_t missed = respiration.size() - application->respiration.size();
  for (std::size_t index = 0; index < application->respiration.size(); ++index) {
    const float raw = respiration[missed + index];
    engine.processLeadoffDetection(raw);
    ASSERT_SAME_BITS(application->respiration[index], engine.processRespiration(raw));
  }
}

TEST_F(WholePathSimulatedStrapTest, PlaysARecordingThroughTheWholePathSampleBySample) {
  const std::string name = "resting_5min_100hz.csv";
  const auto recording = std::make_shared<const simulator::Recording>(
      simulator::Recording::load(recordingPath(name), 100));
  wear({.recording = recording}, 310s);
  EXPECT_EQ(recording->rows(), 30000u);
  EXPECT_EQ(sentOn(Zephly::Stream::ecg), 150000u);
  EXPECT_EQ(application->ecg.size(), 150000u);
  EXPECT_EQ(application->respiration.size(), 150000u);
  EXPECT_THAT(log, testing::Not(testing::Contains("didDisconnectPeripheral")));
}

TEST_F(WholePathSimulatedStrapTest, ADestroyedApplicationGetsNoEventsAndTheSessionContinues) {
  simulator::Strap source;
  const simulated::StrapDevice carrier(device, source);
  scheduler.advance(5s);
  log.clear();
  application.reset();
  scheduler.advance(5s);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_TRUE(device.connected());
}

TEST_F(WholePathSimulatedStrapTest, TwoSessionsOnOneRadioBothReceiveEverything) {
  recorded::Log otherLog;
  const auto other = std::make_shared<recorded::Application>(otherLog);
  const auto second = ::Zephly::Zephly::init(other);
  scheduler.advance(1s);
  sendECG(0);
  scheduler.advance(1s);
  expectCounts(0, 6);
  EXPECT_EQ(other->ecg, application->ecg);
  SessionTestAccess::release(*second);
}

// One session with a host and a delegate that are destroyed at its end. Returns its ECG samples.
std::size_t samplesOfASession(std::vector<std::shared_ptr<::Zephly::Zephly>>& sessions) {
  simulated::Scheduler scheduler;
  simulated::Radio radio(scheduler);
  simulated::Device& device = radio.addDevice({.name = "Zephly"});
  addStrapProfile(device);
  recorded::Log log;
  const auto application = std::make_shared<recorded::Application>(log);
  sessions.push_back(::Zephly::Zephly::init(application));
  scheduler.advance(1s);
  device.notify(ecgCharacteristicUUID(), counted::frame(0));
  scheduler.advance(1s);
  return application->ecg.size();
}

// What docs/faq.md promises of stopping and starting again.
TEST(OneSessionAfterAnotherTest, WorksOnANewHost) {
  const CapturedOutput output;
  std::vector<std::shared_ptr<::Zephly::Zephly>> sessions;
  EXPECT_EQ(samplesOfASession(sessions), 6U);
  EXPECT_EQ(samplesOfASession(sessions), 6U);
  for (const auto& session : sessions) SessionTestAccess::release(*session);
}

}  // namespace
