#include <tools/export/capture_player.h>

#include <platforms/foundation/data.h>
#include <tools/capture/capture_error.h>
#include <tools/option_values.h>
#include <tools/replay/contradiction.h>
#include <tools/replay/replay_host.h>
#include <tools/text.h>
#include <tools/watch/diagnostics_catcher.h>
#include <tools/watch/receiver.h>
#include <zephly/session/zephly.h>

#include <memory>
#include <string_view>
#include <utility>
#include <variant>

namespace Zephly::exporting {

namespace {

using capture::CaptureError;

// As in a replay; beyond it a clock of nanoseconds would not hold what is added to it.
constexpr auto latest = std::chrono::duration_cast<std::chrono::nanoseconds>(
    std::chrono::duration<double>(tools::longestTime));

// A session, and what it says of one record.
class Listening {
 public:
  Listening()
      : receiver_(std::make_shared<watch::Receiver>(
            [this] { return moment_.time; }, [this](const watch::Event& event) { take(event); })),
        catcher_([this](std::string_view line) { receiver_->diagnosticLine(line); }),
        session_(::Zephly::Zephly::init(receiver_)) {
    session_->startWorkoutDetection(receiver_);
  }

  const Moment& deliver(const capture::Record& record) {
    moment_.clear();
    moment_.time = record.stamp.monotonic;
    value_ = std::get_if<capture::Value>(&record.what);
    raw_.clear();
    host_.deliver(record);
    return moment_;
  }

  const replay::Divergences& divergences() const { return host_.divergences(); }

 private:
  void take(const watch::Event& event) {
    std::visit([this](const auto& what) { note(what); }, event.what);
  }

  void note(const watch::Connected& /*what*/) { moment_.connected = true; }
  void note(const watch::Disconnected& /*what*/) { moment_.disconnected = true; }
  void note(const watch::LeadOff& what) {
    moment_.contacts.push_back({moment_.respiration.size(), what.off});
  }
  void note(const watch::Temperature& what) { moment_.temperature = what; }
  void note(const watch::Battery& what) { moment_.battery = what.status; }
  void note(const watch::EcgSample& what) { moment_.ecg.push_back(what.value); }
  void note(const watch::RespirationSample& what) {
    if (raw_.empty()) raw_ = FrameDecoders::calculateECGValue(frame());
    moment_.respiration.push_back({raw_[moment_.respiration.size()], what.value});
  }
  void note(const watch::Repetition& what) { moment_.repetitions.push_back(what.exercise); }
  // The trace line says that the kit has taken the reading.
  void note(const watch::MotionSample& /*what*/) {
    moment_.motion = FrameDecoders::calculateMotionValue(frame());
  }
  void note(const watch::Diagnostic& /*what*/) {}
  void note(const watch::HostLine& /*what*/) {}

  // That the kit has just been given.
  platforms::Data frame() const {
    return platforms::Data(value_ != nullptr && value_->bytes ? *value_->bytes
                                                              : std::vector<std::uint8_t>{});
  }

  replay::ReplayHost host_;
  Moment moment_;
  const capture::Value* value_ = nullptr;
  std::vector<float> raw_;  // of a respiration frame, when it has been decoded
  std::shared_ptr<watch::Receiver> receiver_;
  watch::DiagnosticsCatcher catcher_;
  std::shared_ptr<::Zephly::Zephly> session_;
};

std::string divergenceText(const std::filesystem::path& file,
                           const replay::Divergences& divergences) {
  return tools::printable(file.string()) + ": " + std::to_string(divergences.count) +
         (divergences.count == 1 ? " record" : " records") +
         " that the session has not asked for; the first at " +
         tools::clockText(divergences.firstTime) + ": " + divergences.first;
}

}  // namespace

void Moment::clear() {
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

CapturePlayer::CapturePlayer(std::filesystem::path file) : file_(std::move(file)), reader_(file_) {}

Played CapturePlayer::play(const std::function<void(const Moment&)>& listener,
                           std::uint64_t limit) {
  Played played;
  Listening listening;
  std::uint64_t offset = reader_.offset();
  const auto damaged = [&](const std::string& what) {
    return CaptureError(CaptureError::Kind::damaged, file_, offset, what);
  };
  try {
    for (; played.records < limit; ++played.records) {
      offset = reader_.offset();
      const auto record = reader_.next();
      if (!record) {
        if (reader_.ended()) break;
        throw CaptureError(CaptureError::Kind::cut, file_, reader_.offset(),
                           "the capture stops here without its end");
      }
      const auto time = record->stamp.monotonic;
      if (time < played.duration) throw damaged("time runs backwards");
      if (time > latest) throw damaged("a time that no session reaches");
      listener(listening.deliver(*record));
      played.duration = time;
    }
  } catch (const replay::Contradiction& contradiction) {
    played.complaints.emplace_back(damaged(contradiction.what()).what());
  } catch (const CaptureError& error) {
    played.complaints.emplace_back(error.what());
  }
  if (listening.divergences().count > 0) {
    played.complaints.push_back(divergenceText(file_, listening.divergences()));
  }
  return played;
}

}  // namespace Zephly::exporting
