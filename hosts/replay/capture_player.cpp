// SPDX-License-Identifier: MIT
#include <hosts/replay/capture_player.h>

#include <capture/capture_error.h>
#include <capture/text.h>
#include <hosts/foundation/data.h>
#include <hosts/foundation/observation.h>
#include <hosts/replay/contradiction.h>
#include <hosts/replay/replay_host.h>
#include <zephly/dsp/body_temperature_estimator.h>
#include <zephly/platform/observer.h>
#include <zephly/session/zephly.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <variant>

namespace Zephly::replay {

namespace {

// The application and the observer of the played session. The callbacks of one record are collected
// in `record`.
class Application final : public ZephlyDelegate, public WorkoutDelegate, public Observer {
 public:
  void didConnectPeripheral() override { record.connected = true; }
  void didDisconnectPeripheral() override { record.disconnected = true; }
  void didChangeLeadoffState(bool off) override {
    // Reported before the sample that it belongs to.
    record.contacts.push_back({record.respiration.size(), off});
  }
  void didReceiveTemperature(float object, float ambient, float /*body*/) override {
    const float estimate = body_.process(object, ambient);
    readings_ = std::min(readings_ + 1, readingsUntilSettled);
    record.temperature = {object, ambient, std::nullopt};
    if (readings_ == readingsUntilSettled) record.temperature->bodyEstimate = estimate;
  }
  void didReceiveBatteryStatus(BatteryStatus status) override { record.battery = status; }
  void didReceiveECG(float sample) override { record.ecg.push_back(sample); }
  void didReceiveRespiration(float sample) override {
    if (rawRespiration_.empty()) rawRespiration_ = FrameDecoders::calculateECGValue(*frame_);
    record.respiration.push_back({rawRespiration_[record.respiration.size()], sample});
  }
  // The session reports no motion readings to an application, but to the observer.
  void didTraceMotion(const MotionTrace& /*fact*/) override {
    record.motion = FrameDecoders::calculateMotionValue(*frame_);
  }
  void didDetectPushUp() override { record.repetitions.push_back(Exercise::pushUp); }
  void didDetectSitUp() override { record.repetitions.push_back(Exercise::sitUp); }
  void didDetectJump() override { record.repetitions.push_back(Exercise::jump); }

  // The next record has this time and, when it is a notification, these bytes.
  void begin(std::chrono::nanoseconds time, std::shared_ptr<const NSData> frame) {
    record.clear();
    record.time = time;
    frame_ = std::move(frame);
    rawRespiration_.clear();
  }

  PlayedRecord record;

 private:
  std::shared_ptr<const NSData> frame_;
  std::vector<float> rawRespiration_;  // of the frame, once it has been decoded
  BodyTemperatureEstimator body_;
  int readings_ = 0;  // up to readingsUntilSettled
};

// A session on the replay host.
class PlayedSession {
 public:
  PlayedSession() : session_(::Zephly::Zephly::init(application_)) {
    session_->startWorkoutDetection(application_);
  }

  const PlayedRecord& deliver(const capture::Record& record) {
    const auto* value = std::get_if<capture::Value>(&record.what);
    application_->begin(record.stamp.monotonic, value != nullptr && value->bytes
                                                    ? hosts::Data::of(*value->bytes)
                                                    : nullptr);
    host_.deliver(record);
    return application_->record;
  }

  const Divergences& divergences() const { return host_.divergences(); }

 private:
  ReplayHost host_;
  std::shared_ptr<Application> application_ = std::make_shared<Application>();
  const hosts::Observation observation_{*application_};
  std::shared_ptr<::Zephly::Zephly> session_;
};

}  // namespace

void PlayedRecord::clear() {
  connected = false;
  disconnected = false;
  ecg.clear();
  respiration.clear();
  contacts.clear();
  temperature.reset();
  battery.reset();
  motion.reset();
  repetitions.clear();
}

CapturePlayer::CapturePlayer(const std::filesystem::path& file) : records_(file) {}

Played CapturePlayer::play(const std::function<void(const PlayedRecord&)>& listener,
                           std::uint64_t limit) {
  Played played;
  const auto note = [&](const capture::CaptureError& error) {
    played.complaints.emplace_back(error.what());
    played.defects.push_back(
        {.file = records_.file(), .offset = error.offset(), .reason = error.reason()});
  };
  PlayedSession session;
  try {
    for (; played.records < limit; ++played.records) {
      const auto record = records_.next();
      if (!record) break;
      listener(session.deliver(*record));
      played.duration = record->stamp.monotonic;
    }
  } catch (const Contradiction& contradiction) {
    note(records_.damaged(contradiction.what()));
  } catch (const capture::CaptureError& error) {
    note(error);
  }
  if (const auto complaint = records_.complaint(session.divergences())) {
    played.complaints.push_back(capture::printable(records_.path().string()) + ": " + *complaint);
    played.defects.push_back({.file = records_.path(), .reason = *complaint});
  }
  return played;
}

}  // namespace Zephly::replay
