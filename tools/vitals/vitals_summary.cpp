// SPDX-License-Identifier: MIT
#include <tools/vitals/vitals_summary.h>

#include <capture/text.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace Zephly::recorders {

namespace {

using tools::JsonObject;

constexpr const char* unknownValue = "-";
constexpr double percent = 100;

std::string decimal(double value, int digits) {
  std::array<char, 400> text{};  // room for any double
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, digits)
          .ptr;
  return {text.data(), end};
}

std::string decimal(const std::optional<double>& value, int digits, const char* unit = "") {
  return value ? decimal(*value, digits) + unit : unknownValue;
}

std::string plural(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// "I 360/s"
std::string signalText(const std::optional<AboutInput::Signal>& signal) {
  if (!signal) return "none";
  std::string rate = decimal(signal->rate, 2);
  rate.erase(rate.find_last_not_of('0') + 1);
  if (rate.ends_with('.')) rate.pop_back();
  return capture::printable(signal->name) + ", " + rate + " samples per second";
}

// Empty: null.
std::optional<JsonObject> signalJson(const std::optional<AboutInput::Signal>& signal,
                                     const std::optional<double>& quality) {
  if (!signal) return std::nullopt;
  return JsonObject()
      .add("name", signal->name)
      .add("rate", signal->rate)
      .add("quality", rounded(quality, 3));
}

std::string hrvText(const vitals::Hrv& hrv) {
  std::string text = "  HRV          mean NN " + decimal(hrv.meanNN, 1, " ms") + ", SDNN " +
                     decimal(hrv.sdnn, 1, " ms") + ", RMSSD " + decimal(hrv.rmssd, 1, " ms") +
                     ", pNN50 " + decimal(hrv.pnn50, 1, " %") + "\n";
  text += "               SD1 " + decimal(hrv.sd1, 1, " ms") + ", SD2 " +
          decimal(hrv.sd2, 1, " ms") + ", LF " + decimal(hrv.lf, 0, " ms2") + ", HF " +
          decimal(hrv.hf, 0, " ms2") + ", LF/HF " + decimal(hrv.lfOverHf, 2) + "\n";
  return text + "               from " + decimal(percent * hrv.share, 1) + " % of the intervals\n";
}

}  // namespace

std::optional<double> rounded(const std::optional<double>& value, int digits) {
  if (!value || !std::isfinite(*value)) return std::nullopt;
  const double step = std::pow(10.0, digits);
  return std::round(*value * step) / step;
}

JsonObject hrvJson(const vitals::Hrv& hrv) {
  return JsonObject()
      .add("nn", hrv.nn)
      .add("share", rounded(hrv.share, 4))
      .add("meanNN", rounded(hrv.meanNN, 3))
      .add("sdnn", rounded(hrv.sdnn, 3))
      .add("rmssd", rounded(hrv.rmssd, 3))
      .add("pnn50", rounded(hrv.pnn50, 3))
      .add("sd1", rounded(hrv.sd1, 3))
      .add("sd2", rounded(hrv.sd2, 3))
      .add("lf", rounded(hrv.lf, 3))
      .add("hf", rounded(hrv.hf, 3))
      .add("lfOverHf", rounded(hrv.lfOverHf, 4));
}

void VitalsSummary::breath(const vitals::Breath& breath) {
  ++breaths_;
  if (breath.derived) ++derivedBreaths_;
}

void VitalsSummary::second(const vitals::Second& second) {
  ++seconds_;
  if (second.heartRate) heartRates_.push_back(static_cast<float>(*second.heartRate));
  if (second.breathingRate) breathingRates_.push_back(static_cast<float>(*second.breathingRate));
  ecgQuality_ += second.ecgQuality;
  respirationQuality_ += second.respirationQuality;
}

VitalsSummary::Figures VitalsSummary::figuresOf(std::vector<float> values) const {
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  return {.median = values[values.size() / 2],
          .lowest = values.front(),
          .highest = values.back(),
          .known = static_cast<double>(values.size()) / static_cast<double>(seconds_)};
}

std::size_t VitalsSummary::countOf(vitals::BeatClass kind) const {
  return static_cast<std::size_t>(std::count_if(
      beats_.begin(), beats_.end(), [&](const vitals::Beat& beat) { return beat.kind == kind; }));
}

std::size_t VitalsSummary::lateBeats() const {
  return static_cast<std::size_t>(std::count_if(
      beats_.begin(), beats_.end(), [](const vitals::Beat& beat) { return beat.late; }));
}

std::optional<double> VitalsSummary::meanOf(double sum) const {
  if (seconds_ == 0) return std::nullopt;
  return sum / static_cast<double>(seconds_);
}

std::string VitalsSummary::text(const AboutInput& about) const {
  const auto rates = [](const Figures& figures) {
    if (!figures.median) return std::string(unknownValue);
    return decimal(figures.median, 1) + " /min (" + decimal(figures.lowest, 1) + " to " +
           decimal(figures.highest, 1) + "), known for " + decimal(percent * figures.known, 1) +
           " % of the time";
  };
  std::string text = capture::printable(about.file.string()) + " (" + about.format + ", " +
                     capture::clockText(about.duration) + ")\n";
  text += "  ECG          " + signalText(about.ecg);
  if (about.ecg) text += ", quality " + decimal(meanOf(ecgQuality_), 2);
  text += "\n  respiration  " + signalText(about.respiration);
  if (about.respiration) text += ", quality " + decimal(meanOf(respirationQuality_), 2);
  text += "\n";
  if (about.ecg) {
    text += "  beats        " + std::to_string(beats_.size()) + ": " +
            std::to_string(countOf(vitals::BeatClass::normal)) + " normal, " +
            std::to_string(countOf(vitals::BeatClass::ectopic)) + " ectopic, " +
            plural(countOf(vitals::BeatClass::artefact), "artefact") + "\n";
    text += "  heart rate   " + rates(figuresOf(heartRates_)) + "\n";
    text += hrvText(vitals::hrvOf(beats_));
  }
  text += "  breaths      " + std::to_string(breaths_) +
          (derivedBreaths_ > 0 ? ", " + std::to_string(derivedBreaths_) + " of them from the ECG"
                               : "") +
          "\n";
  return text + "  breathing    " + rates(figuresOf(breathingRates_)) + "\n";
}

JsonObject VitalsSummary::json(const AboutInput& about) const {
  const auto rates = [](const Figures& figures) {
    return JsonObject()
        .add("median", rounded(figures.median, 2))
        .add("lowest", rounded(figures.lowest, 2))
        .add("highest", rounded(figures.highest, 2))
        .add("known", rounded(figures.known, 4));
  };
  return JsonObject()
      .add("file", about.file.string())
      .add("format", about.format)
      .add("duration", std::chrono::duration<double>(about.duration).count())
      .add("ecg", signalJson(about.ecg, meanOf(ecgQuality_)))
      .add("respiration", signalJson(about.respiration, meanOf(respirationQuality_)))
      .add("beats", JsonObject()
                        .add("count", beats_.size())
                        .add("normal", countOf(vitals::BeatClass::normal))
                        .add("ectopic", countOf(vitals::BeatClass::ectopic))
                        .add("artefact", countOf(vitals::BeatClass::artefact))
                        .add("late", lateBeats()))
      .add("heartRate", rates(figuresOf(heartRates_)))
      .add("hrv", hrvJson(vitals::hrvOf(beats_)))
      .add("breaths", JsonObject().add("count", breaths_).add("derived", derivedBreaths_))
      .add("breathingRate", rates(figuresOf(breathingRates_)));
}

}  // namespace Zephly::recorders
