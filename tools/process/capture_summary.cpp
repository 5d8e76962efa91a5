// SPDX-License-Identifier: MIT
#include <tools/process/capture_summary.h>

#include <hosts/replay/contact_intervals.h>
#include <timing/clock_fit.h>
#include <tools/export/csv_file.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <chrono>
#include <optional>

namespace Zephly::processing {

namespace {

using namespace std::chrono_literals;
using recorders::rounded;
using tools::JsonArray;
using tools::JsonObject;
using Kind = replay::Annotation::Kind;

double seconds(timing::Nanoseconds time) {
  constexpr int digits = 3;
  return *rounded(std::chrono::duration<double>(time).count(), digits);
}

// By how much the times of a stretch of this length are wrong at most (docs/export.md).
constexpr timing::Nanoseconds errorOf(timing::Nanoseconds length) {
  return length < 10min ? 10ms : 4ms;
}

// How fast the strap's clock was in the longest stretch of a stream, if that is long enough.
struct Drift {
  double ppm = 0;
  double error = 0;  // ppm: both ends of the stretch wrong, in opposite directions
};

std::optional<Drift> driftOf(const timing::StreamClock& clock) {
  const auto longest =
      std::max_element(clock.segments.begin(), clock.segments.end(),
                       [](const auto& a, const auto& b) { return a.samples < b.samples; });
  if (longest == clock.segments.end()) return std::nullopt;
  const timing::Nanoseconds length = longest->end() - longest->begin;
  if (length < timing::shortestForRate) return std::nullopt;
  constexpr double million = 1e6;
  const double error = 2 * std::chrono::duration<double>(errorOf(length)).count() /
                       std::chrono::duration<double>(length).count();
  return Drift{.ppm = million * (clock.rate.period() / longest->period - 1),
               .error = million * error};
}

struct Lengths {
  std::uint64_t count = 0;
  timing::Nanoseconds sum{};
};

template <class Matches>
Lengths lengthsOf(const replay::Timeline& timeline, const Matches& matches) {
  Lengths lengths;
  for (const replay::Annotation& annotation : timeline.annotations) {
    if (!matches(annotation)) continue;
    ++lengths.count;
    lengths.sum += annotation.duration.value_or(0ns);
  }
  return lengths;
}

JsonObject streamJson(Stream stream, const replay::Timeline& timeline) {
  const timing::StreamClock& clock = timeline.clock(stream);
  const Lengths gaps = lengthsOf(timeline, [&](const replay::Annotation& one) {
    return one.kind == Kind::gap && one.stream == stream;
  });
  const std::optional<Drift> drift = driftOf(clock);
  std::optional<double> rate;
  if (drift) rate = clock.rate.perSecond * (1 + drift->ppm / 1e6);
  return JsonObject()
      .add("samples", clock.samples())
      .add("nominalRate", clock.rate.perSecond)
      .add("rate", rounded(rate, 6))
      .add("driftPpm", drift ? rounded(drift->ppm, 2) : std::nullopt)
      .add("driftErrorPpm", drift ? rounded(drift->error, 2) : std::nullopt)
      .add("gaps", gaps.count)
      .add("gapSeconds", seconds(gaps.sum));
}

JsonArray damageJson(const std::vector<replay::Defect>& defects) {
  JsonArray damage;
  for (const replay::Defect& defect : defects) {
    damage.add(JsonObject()
                   .add("file", defect.file.filename().string())
                   .add("offset", defect.offset)
                   .add("reason", defect.reason));
  }
  return damage;
}

std::uint64_t countOf(const replay::Timeline& timeline, Kind kind) {
  return lengthsOf(timeline, [&](const auto& one) { return one.kind == kind; }).count;
}

}  // namespace

void CaptureSummary::begin(const capture::Preamble& preamble, const replay::Timeline& timeline) {
  preamble_ = preamble;
  timeline_ = timeline;
}

void CaptureSummary::take(const replay::PlayedRecord& record) {
  if (const auto& sample = record.temperature) {
    skin_.take(sample->object);
    ambient_.take(sample->ambient);
    if (sample->bodyEstimate) body_.take(*sample->bodyEstimate);
  }
  if (record.battery) {
    if (batteryReports_++ == 0) {
      firstBattery_ = *record.battery;
      lowestCharge_ = record.battery->soc;
    }
    lastBattery_ = *record.battery;
    lowestCharge_ = std::min(lowestCharge_, record.battery->soc);
  }
}

void CaptureSummary::Readings::take(double value) {
  lowest_ = count_ == 0 ? value : std::min(lowest_, value);
  highest_ = count_ == 0 ? value : std::max(highest_, value);
  sum_ += value;
  ++count_;
}

JsonObject CaptureSummary::Readings::json(int digits) const {
  const auto known = [&](double value) {
    return count_ == 0 ? std::nullopt : rounded(value, digits);
  };
  return JsonObject()
      .add("mean", known(sum_ / static_cast<double>(count_)))
      .add("lowest", known(lowest_))
      .add("highest", known(highest_));
}

JsonObject CaptureSummary::json(const recorders::AboutInput& about,
                                const std::vector<replay::Defect>& defects) const {
  constexpr int degreeDigits = 2;
  JsonObject streams;
  for (const Stream stream : replay::exportOrder) {
    if (replay::isMeasured(stream)) {
      streams.add(streamInfo(stream).name, streamJson(stream, timeline_));
    }
  }
  const Lengths lost =
      lengthsOf(timeline_, [](const auto& one) { return one.kind == Kind::linkLost; });
  const auto intervals = replay::contactIntervals(timeline_.annotations, timeline_.end);
  const auto charge = [&](double value) {
    return batteryReports_ == 0 ? std::nullopt : rounded(value, 1);
  };
  return JsonObject()
      .add("recordedBy", preamble_.program)
      .add("source", preamble_.source)
      .add("simulated", preamble_.simulated)
      .add("began", exporting::dateText(preamble_.began))
      .add("duration", seconds(timeline_.end))
      .add("links", JsonObject()
                        .add("connected", countOf(timeline_, Kind::connected))
                        .add("lost", lost.count)
                        .add("lostSeconds", seconds(lost.sum)))
      .add("streams", streams)
      .add("contact",
           JsonObject().add("share", rounded(replay::contactShare(intervals, timeline_.end), 4)))
      .add("repetitions", JsonObject()
                              .add("pushUps", countOf(timeline_, Kind::pushUp))
                              .add("sitUps", countOf(timeline_, Kind::sitUp))
                              .add("jumps", countOf(timeline_, Kind::jump)))
      .add("temperature", JsonObject()
                              .add("skin", skin_.json(degreeDigits))
                              .add("ambient", ambient_.json(degreeDigits))
                              .add("bodyEstimate", body_.json(degreeDigits)))
      .add("battery", JsonObject()
                          .add("reports", batteryReports_)
                          .add("first", charge(firstBattery_.soc))
                          .add("last", charge(lastBattery_.soc))
                          .add("lowest", charge(lowestCharge_)))
      .add("vitals", vitals_.json(about))
      .add("damage", damageJson(defects));
}

}  // namespace Zephly::processing
