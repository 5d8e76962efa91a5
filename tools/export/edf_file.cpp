// SPDX-License-Identifier: MIT
#include <tools/export/edf_discontinuous.h>
#include <tools/export/edf_file.h>
#include <zephly/protocol/strap_time.h>
#include <zephly/protocol/streams.h>

#include <edflib.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <ratio>
#include <system_error>
#include <utility>

namespace Zephly::exporting {

namespace {

using namespace std::chrono_literals;

// The first word of a label is the type of the signal: as EDF+ defines it, or as MNE-Python knows
// it. MNE-Python drops this word, so the rest must be unique as well. There is no prefilter: MNE
// takes the prefilter of one signal for that of all.
constexpr std::array<EdfKind, edfChannels> kinds = {{
    {"ECG chest", "chest strap", "mV", -2.42, 2.42, -32767, 32767, streamInfo(Stream::ecg).rate},
    {"Resp chest raw", "chest strap", "", -2.42, 2.42, -32767, 32767,
     streamInfo(Stream::respiration).rate},
    {"Resp chest filt", "chest strap, filtered to 0.04 to 2 Hz", "", 0, 1, -32768, 32767,
     streamInfo(Stream::respiration).rate},
    // The strap's own steps of 0.02 K, from absolute zero.
    {"Temp skin", "chest strap", "degC", -273.15, 1037.55, -32768, 32767,
     streamInfo(Stream::temperature).rate},
    {"Temp ambient", "chest strap", "degC", -273.15, 1037.55, -32768, 32767,
     streamInfo(Stream::temperature).rate},
    // The strap's own steps of 0.1 %.
    {"Misc battery", "chest strap", "%", 0, 100, 0, 1000, 1},
}};

// A charge holds until the next report, unless several of them are missing.
constexpr timing::Nanoseconds chargeHolds = 3 * frameInterval(Stream::battery);

constexpr int mostAnnotationSignals = 64;  // of EDFlib

// Times in 0.1 ms, as EDF+ files of this program have them; a duration of -1 is none. Version 1.27
// of EDFlib brought a function that counts in microseconds and deprecated the one before: as
// `Handle` is a template parameter, only a function that exists is called, and the newer of the
// two.
template <class Handle>
int writeAnnotation(Handle handle, std::int64_t onset, std::int64_t duration, const char* text) {
  if constexpr (requires { edfwrite_annotation_utf8_hr(handle, onset, duration, text); }) {
    const std::int64_t microseconds = 100;
    return edfwrite_annotation_utf8_hr(handle, onset * microseconds,
                                       duration < 0 ? -1 : duration * microseconds, text);
  } else {
    return edfwrite_annotation_utf8(handle, onset, duration, text);
  }
}

// EDFlib cuts numbers off where it has no room, so that -273.15 would be -273.149.
double awayFromZero(double value) { return value * (1 + 1e-9); }

std::chrono::nanoseconds secondOf(const capture::Preamble& preamble) {
  return std::chrono::floor<std::chrono::seconds>(preamble.began);
}

std::int64_t secondsFrom(timing::Nanoseconds begin, timing::Nanoseconds end) {
  return std::max<std::int64_t>(1, std::chrono::ceil<std::chrono::seconds>(end - begin).count());
}

std::string edfError(int code) {
  switch (code) {
    case EDFLIB_MALLOC_ERROR:
      return "out of memory";
    case EDFLIB_MAXFILES_REACHED:
    case EDFLIB_FILE_ALREADY_OPENED:
      return "it is being written already";
    case EDFLIB_NO_SUCH_FILE_OR_DIRECTORY:
      return "it cannot be opened";
    default:
      return "EDFlib fails with " + std::to_string(code);
  }
}

}  // namespace

const EdfKind& edfKind(EdfChannel channel) { return kinds[static_cast<std::size_t>(channel)]; }

EdfFile::EdfFile(const std::filesystem::path& path, Existing existing,
                 const replay::Timeline& timeline, const capture::Preamble& preamble,
                 const EdfForm& form, const std::vector<EdfAnnotation>& vitals)
    : file_(path, existing),
      timeline_(timeline),
      begin_(secondOf(preamble) - preamble.began),
      start_(edfStart(preamble.began, form.utc ? EdfClock::utc : EdfClock::local)),
      discontinuous_(form.discontinuous),
      seconds_(secondsFrom(begin_, timeline.end)),
      annotations_(
          edfAnnotations(timeline, {begin_, begin_ + std::chrono::seconds(seconds_)}, vitals)),
      records_(chosenRecords()) {
  handle_ = edfopen_file_writeonly(file_.temporary().c_str(), EDFLIB_FILETYPE_EDFPLUS,
                                   static_cast<int>(edfChannels));
  if (handle_ < 0) throw cannotWrite(path, edfError(std::exchange(handle_, -1)));
  for (const EdfKind& kind : kinds) signals_.emplace_back(kind, begin_, records_);
  for (const timing::StreamClock& clock : timeline.clocks) walks_.emplace_back(clock);
  try {
    describe(preamble);
    annotate();
  } catch (...) {
    edfclose_file(handle_);
    throw;
  }
}

EdfFile::~EdfFile() {
  if (handle_ >= 0) edfclose_file(handle_);
}

// Throws when the session does not fit.
EdfRecords EdfFile::chosenRecords() const {
  EdfRecords kept = EdfRecords::withSamples(timeline_, begin_, seconds_);
  if ((discontinuous_ ? kept.count() : seconds_) > std::chrono::seconds(longestEdf).count()) {
    throw cannotWrite(file_.path(), "the capture lasts longer than the " +
                                        std::to_string(longestEdf.count() / 24) +
                                        " days that are put into one EDF+ file");
  }
  if (discontinuous_) return kept;
  const std::int64_t gap = kept.longestGap(seconds_);
  if (gap > std::chrono::seconds(longestFilledGap).count()) {
    throw cannotWrite(file_.path(), "a gap of " + std::to_string(gap) +
                                        " s is too long to be filled (see --edf-discontinuous)");
  }
  return EdfRecords::all(seconds_);
}

// Calls a function of EDFlib that writes to the file. EDFlib does not report every write error, and
// never the reason; the first error number that a call leaves behind is the reason when something
// turns out to be missing.
template <class Call>
int EdfFile::written(Call&& call) {
  errno = 0;
  const int result = call();
  if (writeError_ == 0) writeError_ = errno;
  return result;
}

void EdfFile::fail() const {
  if (writeError_ != 0) throw cannotWrite(file_.path(), writeError_);
  throw cannotWrite(file_.path(), "EDFlib did not write all of it");
}

// For functions of EDFlib that do not touch the file.
void EdfFile::check(int result) {
  if (result < 0) throw cannotWrite(file_.path(), "EDFlib rejects what it is given");
}

void EdfFile::describe(const capture::Preamble& preamble) {
  for (std::size_t i = 0; i < edfChannels; ++i) {
    const EdfKind& kind = kinds[i];
    const auto index = static_cast<int>(i);
    check(edf_set_samplefrequency(handle_, index, kind.perSecond));
    check(edf_set_physical_minimum(handle_, index, awayFromZero(kind.physicalMinimum)));
    check(edf_set_physical_maximum(handle_, index, awayFromZero(kind.physicalMaximum)));
    check(edf_set_digital_minimum(handle_, index, kind.digitalMinimum));
    check(edf_set_digital_maximum(handle_, index, kind.digitalMaximum));
    check(edf_set_label(handle_, index, kind.label));
    check(edf_set_transducer(handle_, index, kind.transducer));
    check(edf_set_physical_dimension(handle_, index, kind.dimension));
  }
  check(edf_set_startdatetime(handle_, static_cast<int>(start_.day.year()),
                              static_cast<int>(static_cast<unsigned>(start_.day.month())),
                              static_cast<int>(static_cast<unsigned>(start_.day.day())),
                              static_cast<int>(start_.time.hours().count()),
                              static_cast<int>(start_.time.minutes().count()),
                              static_cast<int>(start_.time.seconds().count())));
  check(edf_set_equipment(handle_, "Zephly"));
  const std::string additional = start_.zone + (preamble.simulated ? " simulated" : "");
  check(edf_set_recording_additional(handle_, additional.c_str()));
}

void EdfFile::annotate() {
  const auto count = static_cast<std::int64_t>(annotations_.size());
  const std::int64_t records = records_.count();
  // A data record has room for one annotation in each annotation signal.
  const std::int64_t signalsNeeded = (count + records - 1) / records;
  if (signalsNeeded > mostAnnotationSignals) {
    throw cannotWrite(file_.path(),
                      "more has happened than an EDF+ file can hold: " + std::to_string(count) +
                          " events in " + std::to_string(records) + " s (see --csv)");
  }
  check(edf_set_number_of_annotation_signals(
      handle_, static_cast<int>(std::max<std::int64_t>(1, signalsNeeded))));
  // Rounded outwards, so that no slot without a sample is left out.
  using Unit = std::chrono::duration<std::int64_t, std::ratio<1, 10'000>>;
  for (const EdfAnnotation& annotation : annotations_) {
    const auto from = std::chrono::floor<Unit>(annotation.span.from - begin_);
    const auto to = std::chrono::ceil<Unit>(annotation.span.to - begin_);
    check(writeAnnotation(handle_, from.count(), annotation.hasDuration ? (to - from).count() : -1,
                          annotation.text.c_str()));
  }
}

void EdfFile::take(const replay::PlayedRecord& record) {
  takeSamples(record);
  holdCharge(record.time);
  if (record.disconnected) charge_.reset();
  if (record.battery) {
    charge_ = record.battery->soc;
    chargeTime_ = record.time;
  }
  pump();
}

void EdfFile::takeSamples(const replay::PlayedRecord& record) {
  const auto put = [this](EdfChannel channel, const timing::SampleTime& time, float value) {
    signal(channel).put(time.from, time.to, value);
  };
  for (const float value : record.ecg) put(EdfChannel::ecg, walk(Stream::ecg).next(), value);
  for (const replay::RespirationSample& sample : record.respiration) {
    const timing::SampleTime time = walk(Stream::respiration).next();
    put(EdfChannel::respiration, time, sample.raw);
    put(EdfChannel::processedRespiration, time, sample.processed);
  }
  if (record.temperature) {
    const timing::SampleTime time = walk(Stream::temperature).next();
    put(EdfChannel::skin, time, record.temperature->object);
    put(EdfChannel::ambient, time, record.temperature->ambient);
  }
}

void EdfFile::holdCharge(timing::Nanoseconds time) {
  EdfSignal& battery = signal(EdfChannel::battery);
  if (charge_) battery.put(chargeTime_, std::min(time, chargeTime_ + chargeHolds), *charge_);
  battery.skip(time);
}

timing::Nanoseconds EdfFile::horizon(Stream stream) {
  const timing::ClockWalk& samples = walk(stream);
  return samples.over() ? begin_ + std::chrono::seconds(seconds_) : samples.peek().from;
}

void EdfFile::pump() {
  for (const EdfChannel channel : {EdfChannel::respiration, EdfChannel::processedRespiration}) {
    signal(channel).skip(horizon(Stream::respiration));
  }
  for (const EdfChannel channel : {EdfChannel::skin, EdfChannel::ambient}) {
    signal(channel).skip(horizon(Stream::temperature));
  }
  signal(EdfChannel::ecg).skip(horizon(Stream::ecg));
  const auto ready = [](const EdfSignal& one) { return one.secondIsReady(); };
  while (recordsWritten_ < records_.count() &&
         std::all_of(signals_.begin(), signals_.end(), ready)) {
    for (EdfSignal& one : signals_) {
      // EDFlib does not change the samples.
      auto* const samples = const_cast<short*>(one.takeSecond());
      if (written([&] { return edfwrite_digital_short_samples(handle_, samples); }) < 0) fail();
    }
    ++recordsWritten_;
  }
}

void EdfFile::publish() {
  holdCharge(begin_ + std::chrono::seconds(seconds_));
  pump();
  // Closing writes the annotations and the buffered samples, without reporting a failure.
  const int closed = written([&] { return edfclose_file(std::exchange(handle_, -1)); });
  if (closed < 0 || !isComplete()) fail();
  if (discontinuous_) leaveGapsOut();
  file_.publish();
}

// After isComplete(), because EDFlib does not read discontinuous files.
void EdfFile::leaveGapsOut() {
  try {
    makeDiscontinuous(file_.temporary(), records_);
  } catch (const std::system_error& error) {
    throw cannotWrite(file_.path(), error.code().value());
  } catch (const std::runtime_error& error) {
    throw cannotWrite(file_.path(), error.what());
  }
}

// Reads the file again.
bool EdfFile::isComplete() const {
  const auto header = std::make_unique<edf_hdr_struct>();
  if (edfopen_file_readonly(file_.temporary().c_str(), header.get(), EDFLIB_READ_ALL_ANNOTATIONS) <
      0) {
    return false;
  }
  edfclose_file(header->handle);
  return header->datarecords_in_file == records_.count() &&
         header->annotations_in_file == static_cast<std::int64_t>(annotations_.size());
}

}  // namespace Zephly::exporting
