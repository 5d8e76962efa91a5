// SPDX-License-Identifier: MIT
#include <hosts/replay/capture_player.h>

#include <capture/capture_error.h>
#include <capture/text.h>
#include <hosts/foundation/observation.h>
#include <hosts/replay/contradiction.h>
#include <hosts/replay/replay_host.h>
#include <zephly/ble/central_manager.h>
#include <zephly/dsp/body_temperature_estimator.h>
#include <zephly/motion/gravity_compensation.h>
#include <zephly/motion/motion_detector.h>
#include <zephly/platform/observer.h>
#include <zephly/protocol/streams.h>
#include <zephly/session/zephly_peripheral_delegate.h>
#include <offline/respiration_engine.h>

#include <algorithm>
#include <memory>

namespace Zephly::replay {

namespace {

// What the strap sent and which repetitions it contains, record by record. Takes the place of a
// session, whose filters take most of its time: the records of a stretch are collected, and their
// respiration is then filtered at once.
class Strap final : public ZephlyPeripheralDelegate, public Observer {
 public:
  Strap() {
    detector_.context = this;
    detector_.pushUpCallback = detected<Exercise::pushUp>;
    detector_.sitUpCallback = detected<Exercise::sitUp>;
    detector_.jumpCallback = detected<Exercise::jump>;
  }
  Strap(const Strap&) = delete;
  Strap& operator=(const Strap&) = delete;

  void didConnectPeripheral() override { record_->connected = true; }
  void didDisconnectPeripheral() override { record_->disconnected = true; }
  void didReceiveTemperature(float object, float ambient) override {
    const float estimate = body_.process(object, ambient);
    readings_ = std::min(readings_ + 1, readingsUntilSettled);
    record_->temperature = {object, ambient, std::nullopt};
    if (readings_ == readingsUntilSettled) record_->temperature->bodyEstimate = estimate;
  }
  void didReceiveECG(const std::vector<float>& samples) override { record_->ecg = samples; }
  void didReceiveRespiration(const std::vector<float>& samples) override {
    for (const float sample : samples) record_->respiration.push_back({sample, 0});
  }
  void didReceiveBatteryStatus(BatteryStatus status) override { record_->battery = status; }
  void didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                           float az) override {
    record_->motion = {qw, qx, qy, qz, ax, ay, az};
    // As the engine does it.
    const Quaternion orientation(qx, qy, qz, qw);
    constexpr auto rate = static_cast<float>(streamInfo(Stream::motion).rate);
    detector_.process(orientation, gravityCompensate(orientation, Vector3(ax, ay, az)), rate);
  }

  // What is received from now on belongs to this record.
  void begin(PlayedRecord& record) { record_ = &record; }

 private:
  template <Exercise exercise>
  static void detected(void* strap) {
    static_cast<Strap*>(strap)->record_->repetitions.push_back(exercise);
  }

  PlayedRecord* record_ = nullptr;
  MotionDetector detector_;
  BodyTemperatureEstimator body_;
  int readings_ = 0;  // up to readingsUntilSettled
};

// The kit's central manager on the replay host, without a session.
class PlayedLinks {
 public:
  void deliver(const capture::Record& record, PlayedRecord& result) {
    result.clear();
    result.time = record.stamp.monotonic;
    strap_->begin(result);
    host_.deliver(record);
  }

  const Divergences& divergences() const { return host_.divergences(); }

 private:
  ReplayHost host_;
  std::shared_ptr<Strap> strap_ = std::make_shared<Strap>();
  const hosts::Observation observation_{*strap_};
  std::shared_ptr<CentralManager> central_ = CentralManager::init(strap_);
};

// Records until enough of them are there.
class Stretch {
 public:
  using Listener = std::function<void(const PlayedRecord&)>;

  // For the next record. Valid until the next call.
  PlayedRecord& next() {
    if (used_ == records_.size()) records_.emplace_back();
    return records_[used_];
  }

  // next() has been filled in, while the processor clock had this time and `part` of the file had
  // been read.
  void take(std::uint64_t processorTime, double part) {
    const PlayedRecord& record = records_[used_++];
    parts_.push_back(part);
    if (record.respiration.empty()) return;
    for (const RespirationSample& sample : record.respiration) raw_.push_back(sample.raw);
    frames_.push_back({record.respiration.size(), processorTime});
  }

  bool isFull() const { return used_ >= mostRecords || raw_.size() >= mostSamples; }

  // Filters the respiration and passes all records on, after the part of the file that had been
  // read with each.
  void handOver(const Listener& listener, double& part) {
    processed_.resize(raw_.size());
    contact_.resize(raw_.size());
    engine_.process(raw_, frames_, processed_, contact_);
    std::size_t sample = 0;
    for (std::size_t i = 0; i < used_; ++i) {
      addProcessed(records_[i], sample);
      part = parts_[i];
      listener(records_[i]);
    }
    used_ = 0;
    parts_.clear();
    raw_.clear();
    frames_.clear();
  }

 private:
  // So that the filters run in vectors, in some megabytes.
  static constexpr std::size_t mostSamples = 16'384;
  static constexpr std::size_t mostRecords = 8'192;

  void addProcessed(PlayedRecord& record, std::size_t& sample) {
    for (std::size_t i = 0; i < record.respiration.size(); ++i, ++sample) {
      record.respiration[i].processed = processed_[sample];
      const bool on = contact_[sample] != 0;
      if (on != lastContact_) record.contacts.push_back({i, !on});
      lastContact_ = on;
    }
  }

  std::vector<PlayedRecord> records_;
  std::size_t used_ = 0;
  std::vector<double> parts_;
  std::vector<float> raw_;
  std::vector<offline::FrameTime> frames_;
  std::vector<float> processed_;
  std::vector<std::uint8_t> contact_;
  offline::RespirationEngine engine_;
  std::optional<bool> lastContact_;
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
    played.defects.push_back({.file = records_.file(),
                              .offset = error.offset(),
                              .reason = error.reason(),
                              .unread = error.kind() == capture::CaptureError::Kind::unusable});
  };
  PlayedLinks links;
  Stretch stretch;
  try {
    for (; played.records < limit; ++played.records) {
      const auto record = records_.next();
      if (!record) break;
      links.deliver(*record, stretch.next());
      stretch.take(record->stamp.processor, records_.part());
      played.duration = record->stamp.monotonic;
      if (stretch.isFull()) stretch.handOver(listener, part_);
    }
  } catch (const Contradiction& contradiction) {
    note(records_.damaged(contradiction.what()));
  } catch (const capture::CaptureError& error) {
    note(error);
  }
  stretch.handOver(listener, part_);
  if (const auto complaint = records_.complaint(links.divergences())) {
    played.complaints.push_back(capture::printable(records_.path().string()) + ": " + *complaint);
    played.defects.push_back({.file = records_.path(), .reason = *complaint});
  }
  return played;
}

}  // namespace Zephly::replay
