// SPDX-License-Identifier: MIT
// The player has the bits of a session that is replayed, whatever it takes a session's place with.

#include <hosts/foundation/data.h>
#include <hosts/foundation/observation.h>
#include <hosts/replay/capture_player.h>
#include <hosts/replay/replay_host.h>
#include <tests/support/captures.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/sessions.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/session/zephly.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cstdint>
#include <memory>
#include <variant>
#include <vector>

namespace Zephly::replay {
namespace {

using namespace std::chrono_literals;
using sessions::LiveWorld;
using testing::IsEmpty;

// What a session reports for each record, one after the other.
class Application final : public ZephlyDelegate, public WorkoutDelegate, public Observer {
 public:
  void didConnectPeripheral() override { record.connected = true; }
  void didDisconnectPeripheral() override { record.disconnected = true; }
  void didChangeLeadoffState(bool off) override {
    record.contacts.push_back({record.respiration.size(), off});
  }
  void didReceiveTemperature(float object, float ambient, float /*body*/) override {
    record.temperature = {object, ambient, std::nullopt};
  }
  void didReceiveBatteryStatus(BatteryStatus status) override { record.battery = status; }
  void didReceiveECG(float sample) override { record.ecg.push_back(sample); }
  void didReceiveRespiration(float sample) override {
    record.respiration.push_back(
        {FrameDecoders::calculateECGValue(*frame).at(record.respiration.size()), sample});
  }
  void didTraceMotion(const MotionTrace& /*fact*/) override {
    record.motion = FrameDecoders::calculateMotionValue(*frame);
  }
  void didDetectPushUp() override { record.repetitions.push_back(Exercise::pushUp); }
  void didDetectSitUp() override { record.repetitions.push_back(Exercise::sitUp); }
  void didDetectJump() override { record.repetitions.push_back(Exercise::jump); }

  PlayedRecord record;
  std::shared_ptr<const NSData> frame;
};

std::vector<PlayedRecord> sessionOn(const std::vector<capture::Record>& records) {
  ReplayHost host;
  const auto application = std::make_shared<Application>();
  const hosts::Observation observation(*application);
  const auto session = ::Zephly::Zephly::init(application);
  session->startWorkoutDetection(application);
  std::vector<PlayedRecord> results;
  for (const capture::Record& record : records) {
    application->record = {.time = record.stamp.monotonic};
    const auto* value = std::get_if<capture::Value>(&record.what);
    application->frame =
        value != nullptr && value->bytes ? hosts::Data::of(*value->bytes) : nullptr;
    host.deliver(record);
    results.push_back(application->record);
  }
  return results;
}

std::vector<std::uint32_t> bitsOf(const PlayedRecord& record) {
  std::vector<std::uint32_t> bits = {record.connected, record.disconnected};
  const auto add = [&](auto... values) {
    (bits.push_back(std::bit_cast<std::uint32_t>(values)), ...);
  };
  add(static_cast<std::int32_t>(record.ecg.size()));
  for (const float value : record.ecg) add(value);
  add(static_cast<std::int32_t>(record.respiration.size()));
  for (const RespirationSample& sample : record.respiration) add(sample.raw, sample.processed);
  for (const ContactChange& change : record.contacts) {
    add(static_cast<std::int32_t>(change.sample), static_cast<std::int32_t>(change.off));
  }
  if (const auto& sample = record.temperature) add(sample->object, sample->ambient);
  if (const auto& status = record.battery) add(status->soc, std::int32_t{status->inCharge});
  if (const auto& motion = record.motion) {
    add(motion->qw, motion->qx, motion->qy, motion->qz, motion->ax, motion->ay, motion->az);
  }
  for (const Exercise exercise : record.repetitions) add(static_cast<std::int32_t>(exercise));
  return bits;
}

struct Seen {
  std::size_t contacts = 0;
  std::size_t repetitions = 0;
  std::size_t links = 0;
};

Seen expectSameBits(const std::vector<capture::Record>& records) {
  const captures::ScratchDirectory scratch;
  CapturePlayer player(scratch.file("a.zcap", captures::captureOf(records)));
  std::vector<PlayedRecord> played;
  const Played all = player.play([&](const PlayedRecord& record) { played.push_back(record); });
  EXPECT_THAT(all.complaints, IsEmpty());
  const std::vector<PlayedRecord> expected = sessionOn(records);
  EXPECT_EQ(played.size(), expected.size());
  Seen seen;
  for (std::size_t i = 0; i < std::min(played.size(), expected.size()); ++i) {
    EXPECT_EQ(played[i].time, expected[i].time) << i;
    EXPECT_EQ(bitsOf(played[i]), bitsOf(expected[i])) << "record " << i;
    if (testing::Test::HasFailure()) break;
    seen.contacts += expected[i].contacts.size();
    seen.repetitions += expected[i].repetitions.size();
    seen.links += expected[i].connected ? 1 : 0;
  }
  return seen;
}

TEST(PlayedBitsTest, OfATrainingWithLostLinks) {
  LiveWorld world;
  world.strap.loseLinkAt(40s);
  world.scheduler.advance(91s);
  const Seen seen = expectSameBits(world.end());
  EXPECT_GE(seen.contacts, 7U);
  EXPECT_GE(seen.repetitions, 18U);
  EXPECT_EQ(seen.links, 5U);
}

// Contact is lost three times, and the processor time makes both timers fire, in the middle of
// stretches and after one.
TEST(PlayedBitsTest, OfASessionWhoseFiltersAreReset) {
  FakeProcessorClock clock;
  simulator::TrainingPlan plan;
  plan.electrodesOff = {{5s, 20s}, {40s, 2s}, {60s, 15s}};
  LiveWorld world({.seed = 3, .plan = plan});
  for (int second = 0; second < 90; ++second) {
    world.scheduler.advance(1s);
    FakeProcessorClock::now += 700'000;
  }
  const std::vector<capture::Record> records = world.end();
  const Seen seen = expectSameBits(records);
  EXPECT_GE(seen.contacts, 6U);
  // Without the processor time the values are others: the timers have fired.
  std::vector<capture::Record> still = records;
  for (capture::Record& record : still) record.stamp.processor = 17;
  const auto processedOf = [](const std::vector<PlayedRecord>& all) {
    std::vector<float> values;
    for (const PlayedRecord& one : all) {
      for (const RespirationSample& sample : one.respiration) values.push_back(sample.processed);
    }
    return values;
  };
  EXPECT_NE(processedOf(sessionOn(still)), processedOf(sessionOn(records)));
}

}  // namespace
}  // namespace Zephly::replay
