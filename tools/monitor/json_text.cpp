// SPDX-License-Identifier: MIT
#include <tools/monitor/json_text.h>

#include <tools/common/json_object.h>
#include <tools/monitor/json_line.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>

namespace Zephly::monitor {

namespace {

using tools::JsonArray;
using tools::JsonObject;

// In the order of allExercises.
constexpr std::array<const char*, 3> exerciseCounts = {"pushUps", "sitUps", "jumps"};

// Motion values have the six significant digits that the kit writes.
float withSixDigits(float value) {
  std::array<char, 32> text{};
  const auto written =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, 6);
  const auto read = std::from_chars(text.data(), written.ptr, value);
  // The digits of a number below the smallest float round to none.
  return read.ec == std::errc::result_out_of_range ? 0.0F : value;
}

class Writer {
 public:
  explicit Writer(StrapTime time) : time_(time) {}

  std::string operator()(const watch::Connected& /*connected*/) const {
    return line("connected").text();
  }
  std::string operator()(const watch::Disconnected& /*disconnected*/) const {
    return line("disconnected").text();
  }
  std::string operator()(const watch::LeadOff& leadOff) const {
    return line("leadoff").boolean("value", leadOff.off).text();
  }
  std::string operator()(const watch::Temperature& temperature) const {
    return line("temperature")
        .number("object", temperature.object)
        .number("ambient", temperature.ambient)
        .number("body", temperature.body)
        .text();
  }
  std::string operator()(const watch::Battery& battery) const {
    return line("battery")
        .number("soc", battery.status.soc)
        .boolean("inCharge", battery.status.inCharge)
        .text();
  }
  std::string operator()(const watch::EcgSample& sample) const {
    return line("ecg").number("value", sample.value).text();
  }
  std::string operator()(const watch::RespirationSample& sample) const {
    return line("respiration").number("value", sample.value).text();
  }
  std::string operator()(const watch::Repetition& repetition) const {
    return line(watch::eventName(repetition.exercise)).text();
  }
  std::string operator()(const watch::MotionSample& sample) const {
    return line("motion")
        .number("highPassed", withSixDigits(sample.highPassed))
        .number("displacement", withSixDigits(sample.displacement))
        .text();
  }
  std::string operator()(const watch::Diagnostic& diagnostic) const {
    return line("diagnostic").string("text", diagnostic.text).text();
  }
  std::string operator()(const watch::HostLine& host) const {
    return line("host").string("text", host.text).text();
  }
  std::string operator()(const vitals::Beat& beat) const {
    return line("beat")
        .raw("at", jsonSeconds(beat.time))
        .number("rr", beat.rr)
        .number("amplitude", static_cast<float>(beat.amplitude))
        .number("quality", static_cast<float>(beat.quality))
        .string("class", vitals::beatClassName(beat.kind))
        .boolean("late", beat.late)
        .text();
  }
  std::string operator()(const vitals::Breath& breath) const {
    return line("breath")
        .raw("at", jsonSeconds(breath.time))
        .number("duration", breath.duration)
        .number("depth", static_cast<float>(breath.depth))
        .number("quality", static_cast<float>(breath.quality))
        .boolean("derived", breath.derived)
        .text();
  }
  std::string operator()(const vitals::Second& second) const {
    JsonLine text = line("vitals");
    text.raw("at", jsonSeconds(second.time))
        .number("heartRate", second.heartRate)
        .number("heartRateQuality", static_cast<float>(second.heartRateQuality))
        .number("ecgQuality", static_cast<float>(second.ecgQuality))
        .number("breathingRate", second.breathingRate)
        .number("breathingQuality", static_cast<float>(second.breathingQuality))
        .boolean("breathingDerived", second.breathingDerived)
        .number("respirationQuality", static_cast<float>(second.respirationQuality));
    if (!second.contact) return text.raw("contact", "null").text();
    return text.boolean("contact", *second.contact).text();
  }

 private:
  JsonLine line(std::string_view event) const { return {time_, event}; }

  StrapTime time_;
};

// The same number as jsonSeconds() writes.
double seconds(StrapTime time) { return static_cast<double>(time.count()) / 1e9; }

JsonObject streamJson(const watch::StreamSummary& stream) {
  JsonObject json;
  if (stream.strap) json.add("sent", stream.strap->sent);
  json.add("delivered", stream.delivered);
  if (stream.strap) {
    json.add("lost", *stream.lost());
    json.add("notSubscribed", stream.strap->notSubscribed);
  }
  if (stream.perSecond) json.add("perSecond", *stream.perSecond);
  if (stream.longestGap) json.add("longestGap", seconds(*stream.longestGap));
  if (stream.strap && stream.strap->recording) {
    const simulator::PlaybackCounts& played = *stream.strap->recording;
    json.add("recording", JsonObject()
                              .add("rows", played.rows)
                              .add("samples", played.samples)
                              .add("filled", played.filled)
                              .add("saturated", played.saturated));
  }
  return json;
}

JsonArray linkLossesJson(const watch::Summary& summary) {
  JsonArray list;
  for (const watch::SessionModel::LinkLoss& loss : summary.linkLosses) {
    JsonObject json;
    json.add("t", seconds(loss.time));
    if (loss.recovery) json.add("recovery", seconds(*loss.recovery));
    if (loss.reason) json.add("reason", *loss.reason);
    list.add(json);
  }
  return list;
}

JsonObject repetitionsJson(const Repetitions& repetitions) {
  JsonObject json;
  for (const Exercise exercise : allExercises) {
    json.add(exerciseCounts[static_cast<std::size_t>(exercise)], repetitions.of(exercise));
  }
  return json;
}

JsonObject rateJson(const watch::RateRange& rate) {
  const auto mean = rate.mean();
  return JsonObject()
      .add("seconds", rate.seconds)
      .add("mean", mean)
      .add("low", mean ? std::optional(rate.low) : std::nullopt)
      .add("high", mean ? std::optional(rate.high) : std::nullopt);
}

JsonObject vitalsJson(const watch::VitalsCounts& counts) {
  JsonObject beats;
  for (const auto kind :
       {vitals::BeatClass::normal, vitals::BeatClass::ectopic, vitals::BeatClass::artefact}) {
    beats.add(vitals::beatClassName(kind), counts.of(kind));
  }
  return JsonObject()
      .add("seconds", counts.seconds)
      .add("beats", beats)
      .add("breaths", counts.breaths)
      .add("heartRate", rateJson(counts.heartRate))
      .add("breathingRate", rateJson(counts.breathingRate));
}

}  // namespace

std::string jsonText(const watch::Event& event) {
  return std::visit(Writer(event.time), event.what);
}

std::string droppedJsonText(StrapTime time, std::uint64_t lines) {
  return JsonLine(time, "dropped").raw("lines", std::to_string(lines)).text();
}

std::string jsonText(const watch::Summary& summary) {
  JsonObject streams;
  for (const watch::StreamSummary& stream : summary.streams) {
    streams.add(streamInfo(stream.stream).name, streamJson(stream));
  }
  JsonObject repetitions;
  if (summary.repetitionsDone) repetitions.add("done", repetitionsJson(*summary.repetitionsDone));
  repetitions.add("counted", repetitionsJson(summary.repetitionsCounted));
  JsonArray neverArrived;
  for (const std::string& kind : summary.neverArrived) neverArrived.add(kind);
  return JsonLine(summary.duration, "summary")
      .raw("duration", jsonSeconds(summary.duration))
      .raw("streams", streams.text())
      .raw("repetitions", repetitions.text())
      .raw("connections", std::to_string(summary.connections))
      .raw("disconnections", std::to_string(summary.disconnections))
      .raw("reconnections", std::to_string(summary.reconnections))
      .raw("linkLosses", linkLossesJson(summary).text())
      .raw("leadOffChanges", std::to_string(summary.leadOffChanges))
      .raw("neverArrived", neverArrived.text())
      .raw("vitals", vitalsJson(summary.vitals).text())
      .text();
}

}  // namespace Zephly::monitor
