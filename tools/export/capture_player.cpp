#include <tools/export/capture_player.h>

#include <capture/capture_error.h>
#include <hosts/foundation/data.h>
#include <hosts/replay/contradiction.h>
#include <hosts/replay/replay_host.h>
#include <tools/watch/observation.h>
#include <tools/watch/receiver.h>
#include <zephly/session/zephly.h>

#include <memory>
#include <string_view>
#include <utility>
#include <variant>

namespace Zephly::exporting {

namespace {

// A session, and what it reports for one record.
class Listening {
 public:
  Listening()
      : receiver_(std::make_shared<watch::Receiver>(
            [this] { return played_.time; }, [this](const watch::Event& event) { take(event); })),
        observation_(*receiver_),
        session_(::Zephly::Zephly::init(receiver_)) {
    session_->startWorkoutDetection(receiver_);
  }

  const PlayedRecord& deliver(const capture::Record& record) {
    played_.clear();
    played_.time = record.stamp.monotonic;
    value_ = std::get_if<capture::Value>(&record.what);
    raw_.clear();
    host_.deliver(record);
    return played_;
  }

  const replay::Divergences& divergences() const { return host_.divergences(); }

 private:
  void take(const watch::Event& event) {
    std::visit([this](const auto& what) { note(what); }, event.what);
  }

  void note(const watch::Connected& /*what*/) { played_.connected = true; }
  void note(const watch::Disconnected& /*what*/) { played_.disconnected = true; }
  void note(const watch::LeadOff& what) {
    played_.contacts.push_back({played_.respiration.size(), what.off});
  }
  void note(const watch::Temperature& what) { played_.temperature = what; }
  void note(const watch::Battery& what) { played_.battery = what.status; }
  void note(const watch::EcgSample& what) { played_.ecg.push_back(what.value); }
  void note(const watch::RespirationSample& what) {
    if (raw_.empty()) raw_ = FrameDecoders::calculateECGValue(frame());
    played_.respiration.push_back({raw_[played_.respiration.size()], what.value});
  }
  void note(const watch::Repetition& what) { played_.repetitions.push_back(what.exercise); }
  // The kit has processed the reading.
  void note(const watch::MotionSample& /*what*/) {
    played_.motion = FrameDecoders::calculateMotionValue(frame());
  }
  void note(const watch::Diagnostic& /*what*/) {}
  void note(const watch::HostLine& /*what*/) {}

  // The frame being delivered.
  hosts::Data frame() const {
    return hosts::Data(value_ != nullptr && value_->bytes ? *value_->bytes
                                                          : std::vector<std::uint8_t>{});
  }

  replay::ReplayHost host_;
  PlayedRecord played_;
  const capture::Value* value_ = nullptr;
  std::vector<float> raw_;  // of a respiration frame, when it has been decoded
  std::shared_ptr<watch::Receiver> receiver_;
  watch::Observation observation_;
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
  Listening listening;
  try {
    for (; played.records < limit; ++played.records) {
      const auto record = records_.next();
      if (!record) break;
      listener(listening.deliver(*record));
      played.duration = record->stamp.monotonic;
    }
  } catch (const replay::Contradiction& contradiction) {
    played.complaints.emplace_back(records_.damaged(contradiction.what()).what());
  } catch (const capture::CaptureError& error) {
    played.complaints.emplace_back(error.what());
  }
  if (const auto complaint = records_.complaint(listening.divergences())) {
    played.complaints.push_back(*complaint);
  }
  return played;
}

}  // namespace Zephly::exporting
