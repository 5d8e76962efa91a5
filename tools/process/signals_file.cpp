// SPDX-License-Identifier: MIT
#include <tools/process/signals_file.h>

#include <hosts/replay/samples.h>
#include <tools/common/version_text.h>
#include <tools/export/csv_file.h>
#include <tools/process/hdf5_writer.h>
#include <offline/ecg_chain.h>

#include <array>
#include <chrono>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::processing {

namespace {

using Times = Hdf5Column<std::int64_t>;
using Floats = Hdf5Column<float>;
using Doubles = Hdf5Column<double>;
using Codes = Hdf5Column<std::int8_t>;

// Changes when the groups and columns change.
constexpr std::int64_t layout = 1;
constexpr std::int8_t unknown = -1;

double orNaN(const std::optional<double>& value) {
  return value.value_or(std::numeric_limits<double>::quiet_NaN());
}

std::int8_t code(bool flag) { return flag ? 1 : 0; }

// "ecg_mV": its unit is "mV".
std::string unitOf(const std::string& column) {
  const std::size_t line = column.rfind('_');
  return line == std::string::npos || column == "body_estimate" ? "" : column.substr(line + 1);
}

// The group of a stream: when each sample was taken, its values, and where samples are missing.
struct StreamTable {
  StreamTable(const Hdf5Group& group, Stream stream)
      : time(group, "time", "ns"),
        gapSample(group, "gap_sample"),
        gapLength(group, "gap_length", "ns") {
    group.attribute("rate", streamInfo(stream).rate);
    for (const std::string& column : replay::columnsOf(stream)) {
      values.emplace_back(group, column.c_str(), unitOf(column));
    }
    // What the engine's processECG makes of the sample; the session reports the raw one only.
    if (stream == Stream::ecg) processedEcg.emplace(group, "processed");
  }

  void append(const timing::SampleTime& at, std::span<const float> row) {
    time.append(at.time.count());
    if (at.gap > timing::Nanoseconds::zero()) {
      gapSample.append(samples);
      gapLength.append(at.gap.count());
    }
    for (std::size_t i = 0; i < row.size(); ++i) values[i].append(row[i]);
    ++samples;
  }

  void finish() {
    for (Times* column : {&time, &gapSample, &gapLength}) column->finish();
    for (Floats& column : values) column.finish();
    if (processedEcg) processedEcg->finish();
  }

  Times time;
  Times gapSample;
  Times gapLength;
  std::vector<Floats> values;
  std::optional<Floats> processedEcg;
  std::int64_t samples = 0;
};

struct EventTable {
  explicit EventTable(const Hdf5Group& group)
      : time(group, "time", "ns"),
        kind(group, "event"),
        stream(group, "stream"),
        duration(group, "duration", "ns") {
    using Kind = replay::Annotation::Kind;
    std::string kinds;
    for (auto one = static_cast<int>(Kind::connected); one <= static_cast<int>(Kind::gap); ++one) {
      kinds += std::to_string(one) + " " + replay::annotationName(static_cast<Kind>(one)) + "\n";
    }
    kind.attribute("values", kinds);
    std::string streams = "-1 none\n";
    for (const Stream one : allStreams) {
      streams +=
          std::to_string(static_cast<int>(one)) + " " + std::string(streamInfo(one).name) + "\n";
    }
    stream.attribute("values", streams);
    duration.attribute("missing", "-1");
  }

  void append(const replay::Annotation& annotation) {
    time.append(annotation.time.count());
    kind.append(static_cast<std::int8_t>(annotation.kind));
    stream.append(annotation.stream ? static_cast<std::int8_t>(*annotation.stream) : unknown);
    duration.append(annotation.duration ? annotation.duration->count() : -1);
  }

  void finish() {
    time.finish();
    kind.finish();
    stream.finish();
    duration.finish();
  }

  Times time;
  Codes kind;
  Codes stream;
  Times duration;
};

struct BeatTable {
  explicit BeatTable(const Hdf5Group& group)
      : time(group, "time", "ns"),
        rr(group, "rr", "s"),
        amplitude(group, "amplitude", "mV"),
        quality(group, "quality"),
        kind(group, "class"),
        late(group, "late") {
    std::string kinds;
    for (const vitals::BeatClass one :
         {vitals::BeatClass::normal, vitals::BeatClass::ectopic, vitals::BeatClass::artefact}) {
      kinds += std::to_string(static_cast<int>(one)) + " " + vitals::beatClassName(one) + "\n";
    }
    kind.attribute("values", kinds);
  }

  void append(const vitals::Beat& beat) {
    time.append(beat.time.count());
    rr.append(orNaN(beat.rr));
    amplitude.append(beat.amplitude);
    quality.append(beat.quality);
    kind.append(static_cast<std::int8_t>(beat.kind));
    late.append(code(beat.late));
  }

  void finish() {
    time.finish();
    for (Doubles* column : {&rr, &amplitude, &quality}) column->finish();
    for (Codes* column : {&kind, &late}) column->finish();
  }

  Times time;
  Doubles rr;
  Doubles amplitude;
  Doubles quality;
  Codes kind;
  Codes late;
};

struct BreathTable {
  explicit BreathTable(const Hdf5Group& group)
      : time(group, "time", "ns"),
        duration(group, "duration", "s"),
        depth(group, "depth"),
        quality(group, "quality"),
        derived(group, "derived") {}

  void append(const vitals::Breath& breath) {
    time.append(breath.time.count());
    duration.append(orNaN(breath.duration));
    depth.append(breath.depth);
    quality.append(breath.quality);
    derived.append(code(breath.derived));
  }

  void finish() {
    time.finish();
    for (Doubles* column : {&duration, &depth, &quality}) column->finish();
    derived.finish();
  }

  Times time;
  Doubles duration;
  Doubles depth;
  Doubles quality;
  Codes derived;
};

struct SecondTable {
  explicit SecondTable(const Hdf5Group& group)
      : time(group, "time", "ns"),
        heartRate(group, "heart_rate", "1/min"),
        heartRateQuality(group, "heart_rate_quality"),
        ecgQuality(group, "ecg_quality"),
        breathingRate(group, "breathing_rate", "1/min"),
        breathingQuality(group, "breathing_quality"),
        respirationQuality(group, "respiration_quality"),
        breathingDerived(group, "breathing_derived"),
        contact(group, "contact") {
    contact.attribute("missing", "-1");
  }

  void append(const vitals::Second& second) {
    time.append(second.time.count());
    heartRate.append(orNaN(second.heartRate));
    heartRateQuality.append(second.heartRateQuality);
    ecgQuality.append(second.ecgQuality);
    breathingRate.append(orNaN(second.breathingRate));
    breathingQuality.append(second.breathingQuality);
    respirationQuality.append(second.respirationQuality);
    breathingDerived.append(code(second.breathingDerived));
    contact.append(second.contact ? code(*second.contact) : unknown);
  }

  void finish() {
    time.finish();
    for (Doubles* column : {&heartRate, &heartRateQuality, &ecgQuality, &breathingRate,
                            &breathingQuality, &respirationQuality}) {
      column->finish();
    }
    for (Codes* column : {&breathingDerived, &contact}) column->finish();
  }

  Times time;
  Doubles heartRate;
  Doubles heartRateQuality;
  Doubles ecgQuality;
  Doubles breathingRate;
  Doubles breathingQuality;
  Doubles respirationQuality;
  Codes breathingDerived;
  Codes contact;
};

void describe(const Hdf5Group& root, const replay::Timeline& timeline,
              const capture::Preamble& preamble) {
  root.attribute("layout", layout);
  root.attribute("program", tools::programName());
  root.attribute("recorded_by", preamble.program);
  root.attribute("source", preamble.source);
  root.attribute("simulated", static_cast<std::int64_t>(preamble.simulated));
  root.attribute("began_utc", exporting::dateText(preamble.began));
  root.attribute("began_unix_ns", preamble.began.count());
  root.attribute("duration_ns", timeline.end.count());
}

}  // namespace

// Groups come before the columns in them, so that they are closed after them; the file is the last.
class SignalsFile::Tables {
 public:
  Tables(const std::filesystem::path& path, const std::filesystem::path& name,
         const replay::Timeline& timeline, const capture::Preamble& preamble)
      : file_(path, name) {
    describe(file_.root(), timeline, preamble);
    for (const Stream stream : allStreams) {
      const std::string group(streamInfo(stream).name);
      streams_[stream].emplace(file_.group(group.c_str()), stream);
    }
    for (const timing::StreamClock& clock : timeline.clocks) walks_.emplace_back(clock);
    beats_.emplace(file_.group("beats"));
    breaths_.emplace(file_.group("breaths"));
    seconds_.emplace(file_.group("vitals"));
    EventTable events(file_.group("events"));
    for (const replay::Annotation& annotation : timeline.annotations) events.append(annotation);
    events.finish();
  }

  void take(const replay::PlayedRecord& record) {
    const auto batteryTime = batteryTimes_.take(record);
    replay::forEachSample(record, [&](Stream stream, std::span<const float> row) {
      streams_[stream]->append(replay::isMeasured(stream)
                                   ? walks_[static_cast<std::size_t>(stream)].next()
                                   : *batteryTime,
                               row);
    });
    ecg_.insert(ecg_.end(), record.ecg.begin(), record.ecg.end());
    if (ecg_.size() >= Hdf5Dataset::chunk) filterEcg();
  }

  void beat(const vitals::Beat& beat) { beats_->append(beat); }
  void breath(const vitals::Breath& breath) { breaths_->append(breath); }
  void second(const vitals::Second& second) { seconds_->append(second); }

  void complete() {
    filterEcg();
    for (auto& table : streams_) {
      table->finish();
      table.reset();
    }
    beats_->finish();
    breaths_->finish();
    seconds_->finish();
    beats_.reset();
    breaths_.reset();
    seconds_.reset();
    file_.complete();
  }

 private:
  // Of many samples at once, in vectors.
  void filterEcg() {
    chain_.process(ecg_, ecg_);
    for (const float value : ecg_) streams_[Stream::ecg]->processedEcg->append(value);
    ecg_.clear();
  }

  Hdf5Writer file_;
  PerStream<std::optional<StreamTable>> streams_;
  std::vector<timing::ClockWalk> walks_;
  replay::BatteryTimes batteryTimes_;
  std::optional<BeatTable> beats_;
  std::optional<BreathTable> breaths_;
  std::optional<SecondTable> seconds_;
  offline::EcgChain chain_;
  std::vector<float> ecg_;  // not filtered yet
};

SignalsFile::SignalsFile(const std::filesystem::path& path, const std::filesystem::path& name,
                         const replay::Timeline& timeline, const capture::Preamble& preamble)
    : tables_(std::make_unique<Tables>(path, name, timeline, preamble)) {}

SignalsFile::~SignalsFile() = default;

void SignalsFile::take(const replay::PlayedRecord& record) { tables_->take(record); }
void SignalsFile::beat(const vitals::Beat& beat) { tables_->beat(beat); }
void SignalsFile::breath(const vitals::Breath& breath) { tables_->breath(breath); }
void SignalsFile::second(const vitals::Second& second) { tables_->second(second); }
void SignalsFile::complete() { tables_->complete(); }

}  // namespace Zephly::processing
