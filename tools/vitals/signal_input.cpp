// SPDX-License-Identifier: MIT
#include <tools/vitals/input_error.h>
#include <tools/vitals/signal_input.h>

#include <algorithm>
#include <utility>

namespace Zephly::recorders {

namespace {

std::optional<AboutInput::Signal> signalOf(const SignalFile& file,
                                           const std::optional<std::size_t>& chosen) {
  if (!chosen) return std::nullopt;
  const SignalInfo& info = file.signals()[*chosen];
  return AboutInput::Signal{info.name, info.rate};
}

double rateOf(const SignalFile& file, const std::optional<std::size_t>& chosen) {
  return chosen ? file.signals()[*chosen].rate : 0;
}

}  // namespace

SignalInput::SignalInput(std::filesystem::path path, std::unique_ptr<SignalFile> file,
                         const SignalOptions& options, bool searchBack)
    : path_(std::move(path)),
      file_(std::move(file)),
      choice_(chooseSignals(*file_, options)),
      searchBack_(searchBack) {}

AboutInput SignalInput::about() const {
  return {.file = path_,
          .format = file_->format(),
          .ecg = signalOf(*file_, choice_.ecg),
          .respiration = signalOf(*file_, choice_.respiration),
          .duration = end_ - file_->begin()};
}

AnnotationClock SignalInput::annotationClock() const {
  if (const auto rate = file_->annotationRate()) {
    return {.rate = *rate, .isOfTheRecord = true, .begin = file_->begin()};
  }
  const auto& chosen = choice_.ecg ? choice_.ecg : choice_.respiration;
  return {.rate = rateOf(*file_, chosen), .isOfTheRecord = false, .begin = file_->begin()};
}

std::vector<std::string> SignalInput::play(vitals::Receiver& receiver,
                                           const std::function<void(double part)>& progress) {
  vitals::Vitals vitals({.ecgRate = rateOf(*file_, choice_.ecg),
                         .respirationRate = rateOf(*file_, choice_.respiration),
                         .searchBack = searchBack_},
                        receiver);
  std::vector<std::size_t> signals;
  if (choice_.ecg) signals.push_back(*choice_.ecg);
  if (choice_.respiration) signals.push_back(*choice_.respiration);
  file_->choose(signals);
  // Amplitudes are given in millivolt where the file has a unit of voltage.
  const double scale =
      choice_.ecg ? millivoltsOf(file_->signals()[*choice_.ecg].unit).value_or(1) : 1;
  end_ = file_->begin();
  std::vector<SignalSample> samples;
  while (file_->next(samples)) {
    progress(file_->part());
    for (const SignalSample& sample : samples) {
      if (choice_.ecg && sample.signal == 0) {
        vitals.ecg(sample.time, static_cast<float>(sample.value * scale));
      } else {
        vitals.respiration(sample.time, sample.value);
      }
    }
    if (samples.empty()) continue;
    const SignalInfo& last = file_->signals()[signals[samples.back().signal]];
    end_ = std::max(end_, samples.back().time + timeOfSample(1, last.rate));
  }
  vitals.finish();
  return {};
}

}  // namespace Zephly::recorders
