// SPDX-License-Identifier: MIT
#include <hosts/vitals/session_vitals.h>

#include <capture/record.h>
#include <capture/tap_host.h>
#include <hosts/vitals/arrival_clock.h>
#include <hosts/vitals/raw_samples.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <optional>
#include <span>
#include <utility>
#include <variant>

namespace Zephly::hosts {

namespace {

// A second that the end of a link or of the session cuts ends there, not in the future.
class UntilNow final : public vitals::Receiver {
 public:
  UntilNow(vitals::Receiver& receiver, SessionVitals::Clock now)
      : receiver_(receiver), now_(std::move(now)) {}

  void beat(const vitals::Beat& beat) override { receiver_.beat(beat); }
  void breath(const vitals::Breath& breath) override { receiver_.breath(breath); }
  void second(const vitals::Second& second) override {
    vitals::Second ended = second;
    ended.time = std::min(ended.time, now_());
    receiver_.second(ended);
  }

 private:
  vitals::Receiver& receiver_;
  SessionVitals::Clock now_;
};

}  // namespace

class SessionVitals::State {
 public:
  State(vitals::Receiver& receiver, Clock now)
      : receiver_(receiver, now),
        vitals_({.ecgRate = streamInfo(Stream::ecg).rate,
                 .respirationRate = streamInfo(Stream::respiration).rate},
                receiver_),
        tap_({.now = std::move(now),
              .sink = [this](const capture::Record& record) { take(record); },
              .freezeProcessorClock = false}) {}

  void finish() { vitals_.finish(); }

 private:
  void take(const capture::Record& record) {
    if (std::holds_alternative<capture::Connected>(record.what)) {
      ecgClock_.beginLink();
      respirationClock_.beginLink();
    } else if (std::holds_alternative<capture::Disconnected>(record.what)) {
      vitals_.finish();
    } else {
      samples_.take(record, [&](Stream stream, std::span<const float> frame) {
        if (stream == Stream::ecg) {
          takeEcg(record.stamp.monotonic, frame);
        } else {
          takeRespiration(record.stamp.monotonic, frame);
        }
      });
    }
  }

  void takeEcg(std::chrono::nanoseconds arrival, std::span<const float> frame) {
    auto [time, period] = ecgClock_.frame(arrival);
    for (const float sample : frame) {
      vitals_.ecg(time, sample);
      time += period;
    }
  }

  void takeRespiration(std::chrono::nanoseconds arrival, std::span<const float> frame) {
    auto [time, period] = respirationClock_.frame(arrival);
    for (const float sample : frame) {
      const bool contact = leadoff_.process(sample);
      if (contact != contact_) {
        contact_ = contact;
        vitals_.contact(time, contact);
      }
      vitals_.respiration(time, sample);
      time += period;
    }
  }

  UntilNow receiver_;
  RawSamples samples_;
  ArrivalClock ecgClock_{Stream::ecg};
  ArrivalClock respirationClock_{Stream::respiration};
  LeadoffDetector leadoff_;
  std::optional<bool> contact_;
  vitals::Vitals vitals_;
  capture::TapHost tap_;
};

SessionVitals::SessionVitals(vitals::Receiver& receiver, Clock now)
    : state_(std::make_unique<State>(receiver, std::move(now))) {}

SessionVitals::~SessionVitals() = default;

void SessionVitals::finish() { state_->finish(); }

}  // namespace Zephly::hosts
