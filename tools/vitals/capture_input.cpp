// SPDX-License-Identifier: MIT
#include <tools/vitals/capture_input.h>

#include <hosts/replay/capture_vitals.h>
#include <tools/vitals/input_error.h>
#include <zephly/protocol/streams.h>

#include <utility>

namespace Zephly::recorders {

namespace {

AboutInput::Signal strapSignal(Stream stream) {
  return {std::string(streamInfo(stream).name), static_cast<double>(streamInfo(stream).rate)};
}

}  // namespace

AboutInput CaptureInput::about() const {
  return {.file = path_,
          .format = "capture",
          .ecg = strapSignal(Stream::ecg),
          .respiration = strapSignal(Stream::respiration),
          .duration = duration_};
}

AnnotationClock CaptureInput::annotationClock() const {
  return {.rate = static_cast<double>(streamInfo(Stream::ecg).rate)};
}

std::vector<std::string> CaptureInput::play(vitals::Receiver& receiver,
                                            const std::function<void(double part)>& progress) {
  constexpr double half = 0.5;
  replay::Survey survey;
  replay::CapturePlayer first(path_);
  const replay::Played played = first.play([&](const replay::PlayedRecord& record) {
    progress(half * first.part());
    survey.take(record);
  });
  duration_ = played.duration;
  defects_ = played.defects;
  const replay::Timeline timeline = survey.finish(played.duration);
  if (listener_ != nullptr) listener_->begin(first.preamble(), timeline);
  replay::CaptureVitals vitals(timeline, receiver, searchBack_);
  replay::CapturePlayer second(path_);
  const replay::Played again = second.play(
      [&](const replay::PlayedRecord& record) {
        progress(half + half * second.part());
        if (listener_ != nullptr) listener_->record(record);
        vitals.take(record);
      },
      played.records);
  if (again.records != played.records) throw InputError(path_, "it has changed while it was read");
  vitals.finish();
  if (listener_ != nullptr) listener_->end();
  return played.complaints;
}

}  // namespace Zephly::recorders
