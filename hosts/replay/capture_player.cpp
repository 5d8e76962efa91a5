#include <hosts/replay/capture_player.h>

#include <capture/capture_error.h>
#include <hosts/foundation/data.h>
#include <hosts/replay/contradiction.h>
#include <hosts/replay/replay_host.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/session/zephly.h>

#include <iostream>
#include <memory>
#include <set>
#include <streambuf>
#include <utility>
#include <variant>

namespace Zephly::replay {

namespace {

// The kit's lines use the buffer of std::cout: without one, nothing is formatted or written.
class QuietConsole {
 public:
  QuietConsole() : buffer_(std::cout.rdbuf(nullptr)) {}
  QuietConsole(const QuietConsole&) = delete;
  QuietConsole& operator=(const QuietConsole&) = delete;
  ~QuietConsole() { std::cout.rdbuf(buffer_); }

 private:
  std::streambuf* buffer_;
};

// The application of the played session. The callbacks of one record are collected in `record`.
class Application final : public ZephlyDelegate, public WorkoutDelegate {
 public:
  void didConnectPeripheral() override { record.connected = true; }
  void didDisconnectPeripheral() override { record.disconnected = true; }
  void didChangeLeadoffState(bool off) override {
    // Reported before the sample that it belongs to.
    record.contacts.push_back({record.respiration.size(), off});
  }
  void didReceiveTemperature(float object, float ambient, float body) override {
    record.temperature = {object, ambient, body};
  }
  void didReceiveBatteryStatus(BatteryStatus status) override { record.battery = status; }
  void didReceiveECG(float sample) override { record.ecg.push_back(sample); }
  void didReceiveRespiration(float sample) override {
    if (rawRespiration_.empty()) rawRespiration_ = FrameDecoders::calculateECGValue(*frame_);
    record.respiration.push_back({rawRespiration_[record.respiration.size()], sample});
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
};

// A session on the replay host.
class PlayedSession {
 public:
  PlayedSession() : session_(::Zephly::Zephly::init(application_)) {
    session_->startWorkoutDetection(application_);
  }

  const PlayedRecord& deliver(const capture::Record& record) {
    noteCharacteristics(record);
    const auto* value = std::get_if<capture::Value>(&record.what);
    const auto frame = value != nullptr && value->bytes ? hosts::Data::of(*value->bytes) : nullptr;
    application_->begin(record.stamp.monotonic, frame);
    const bool received = host_.deliver(record);
    // The kit reports no motion readings to an application: they are those that it received.
    if (received && frame && !value->error && motion_.contains(value->characteristic)) {
      application_->record.motion = FrameDecoders::calculateMotionValue(*frame);
    }
    return application_->record;
  }

  const Divergences& divergences() const { return host_.divergences(); }

 private:
  void noteCharacteristics(const capture::Record& record) {
    const auto* discovered = std::get_if<capture::CharacteristicsDiscovered>(&record.what);
    if (discovered == nullptr) return;
    for (const capture::Listed& listed : discovered->characteristics) {
      if (CBUUID::parse(listed.UUID) == motionCharacteristicUUID()) {
        motion_.insert(listed.id);
      } else {
        motion_.erase(listed.id);
      }
    }
  }

  const QuietConsole quiet_;
  ReplayHost host_;
  std::set<capture::ObjectId> motion_;
  std::shared_ptr<Application> application_ = std::make_shared<Application>();
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
  PlayedSession session;
  try {
    for (; played.records < limit; ++played.records) {
      const auto record = records_.next();
      if (!record) break;
      listener(session.deliver(*record));
      played.duration = record->stamp.monotonic;
    }
  } catch (const Contradiction& contradiction) {
    played.complaints.emplace_back(records_.damaged(contradiction.what()).what());
  } catch (const capture::CaptureError& error) {
    played.complaints.emplace_back(error.what());
  }
  if (const auto complaint = records_.complaint(session.divergences())) {
    played.complaints.push_back(*complaint);
  }
  return played;
}

}  // namespace Zephly::replay
