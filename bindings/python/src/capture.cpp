// SPDX-License-Identifier: MIT
#include <bindings/python/src/capture.h>

#include <bindings/python/src/arrays.h>

#include <capture/capture_error.h>
#include <hosts/replay/capture_player.h>
#include <hosts/replay/samples.h>
#include <hosts/replay/survey.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <pybind11/numpy.h>
#include <pybind11/stl/filesystem.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zephly_python {

namespace capture = ::Zephly::capture;
namespace replay = ::Zephly::replay;
namespace timing = ::Zephly::timing;
using Zephly::Stream;

namespace {

using Nanoseconds = std::chrono::nanoseconds;

double secondsIn(Nanoseconds time) { return static_cast<double>(time.count()) / 1e9; }

// NaN stands for none in an array.
double gapIn(Nanoseconds gap) {
  return gap > Nanoseconds{} ? secondsIn(gap) : std::numeric_limits<double>::quiet_NaN();
}

// One stream while it is collected.
struct Samples {
  std::vector<std::int64_t> times;  // nanoseconds since the session began
  std::vector<double> gaps;         // seconds
  std::vector<std::vector<float>> columns;

  void add(const timing::SampleTime& time) {
    times.push_back(time.time.count());
    gaps.push_back(gapIn(time.gap));
  }
};

struct Contents {
  capture::Preamble preamble;
  Zephly::PerStream<Samples> streams;
  replay::Timeline timeline;
  std::vector<std::string> damage;
};

// Raises what Ctrl-C raises, and when the interpreter is ending. Without the GIL.
void checkSignals() {
  const py::gil_scoped_acquire python;
  checkEnding();
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

// Without the GIL.
Contents readContents(const std::filesystem::path& path) {
  constexpr std::uint64_t recordsBetweenSignals = 16'384;  // some tenths of a second
  replay::CapturePlayer player(path);
  Contents contents;
  contents.preamble = player.preamble();
  for (const Stream stream : Zephly::allStreams) {
    contents.streams[stream].columns.resize(replay::columnsOf(stream).size());
  }
  replay::Survey survey;
  replay::BatteryTimes batteryTimes;
  std::uint64_t records = 0;
  const replay::Played played = player.play([&](const replay::PlayedRecord& record) {
    if (++records % recordsBetweenSignals == 0) checkSignals();
    survey.take(record);
    if (const auto time = batteryTimes.take(record)) contents.streams[Stream::battery].add(*time);
    replay::forEachSample(record, [&](Stream stream, std::span<const float> values) {
      auto column = contents.streams[stream].columns.begin();
      for (const float value : values) (column++)->push_back(value);
    });
  });
  contents.damage = played.complaints;
  contents.timeline = survey.finish(played.duration);
  for (const Stream stream : Zephly::allStreams) {
    if (!replay::isMeasured(stream)) continue;
    timing::ClockWalk walk(contents.timeline.clock(stream));
    while (!walk.over()) contents.streams[stream].add(walk.next());
  }
  return contents;
}

template <class Number>
py::array arrayOf(const std::vector<Number>& numbers) {
  return py::array_t<Number>(static_cast<py::ssize_t>(numbers.size()), numbers.data());
}

// The clock of datetime64[ns] in numpy: nanoseconds since 1970, UTC.
py::object dateOf(Nanoseconds sinceEpoch) {
  return py::module_::import("numpy").attr("datetime64")(sinceEpoch.count(), "ns");
}

struct CaptureEvent {
  double time;  // seconds
  std::string event;
  std::optional<std::string> stream;
  std::optional<double> duration;  // seconds
};

CaptureEvent eventOf(const replay::Annotation& annotation) {
  CaptureEvent event{.time = secondsIn(annotation.time),
                     .event = replay::annotationName(annotation.kind),
                     .stream = std::nullopt,
                     .duration = std::nullopt};
  if (annotation.stream) event.stream = std::string(streamInfo(*annotation.stream).name);
  if (annotation.duration) event.duration = secondsIn(*annotation.duration);
  return event;
}

std::string describeEvent(const CaptureEvent& event) {
  std::string text = "CaptureEvent(time=" + nameOf(py::repr(py::float_(event.time))) + ", event='" +
                     event.event + "'";
  if (event.stream) text += ", stream='" + *event.stream + "'";
  if (event.duration) text += ", duration=" + nameOf(py::repr(py::float_(*event.duration)));
  return text + ")";
}

class Capture {
 public:
  explicit Capture(const std::filesystem::path& path) {
    const KitUse use;
    const Contents contents = [&] {
      const Unlocked others;
      return readContents(path);
    }();
    preamble_ = contents.preamble;
    end_ = contents.timeline.end;
    damage_ = contents.damage;
    for (const Stream stream : Zephly::allStreams) {
      const Samples& samples = contents.streams[stream];
      times_[stream] = arrayOf(samples.times);
      tables_[stream] = tableOf(stream, samples);
    }
    for (const replay::Annotation& annotation : contents.timeline.annotations) {
      events_.push_back(eventOf(annotation));
      eventTimes_.push_back(annotation.time.count());
    }
  }

  py::dict table(Stream stream) const { return tables_[stream]; }
  const std::vector<CaptureEvent>& events() const { return events_; }
  const std::vector<std::string>& damage() const { return damage_; }
  double duration() const { return secondsIn(end_); }

  py::dict preamble() const {
    py::dict entries;
    entries["program"] = preamble_.program;
    entries["source"] = preamble_.source;
    entries["simulated"] = preamble_.simulated;
    entries["began"] = dateOf(preamble_.began);
    return entries;
  }

  std::vector<CaptureEvent> gaps() const { return eventsNamed("gap"); }

  py::dict repetitions() const {
    py::dict entries;
    for (const Zephly::Exercise exercise : Zephly::allExercises) {
      const std::string name(exerciseName(exercise));
      std::vector<double> times;
      for (const CaptureEvent& event : eventsNamed(name)) times.push_back(event.time);
      entries[py::str(name)] = arrayOf(times);
    }
    return entries;
  }

  py::dict toPandas() const {
    const py::object pandas = importPandas("Capture.to_pandas()");
    py::dict frames;
    for (const Stream stream : Zephly::allStreams) {
      frames[py::str(std::string(streamInfo(stream).name))] =
          frameOf(pandas, tables_[stream], times_[stream]);
    }
    frames["events"] = frameOf(pandas, eventTable(), arrayOf(eventTimes_));
    return frames;
  }

 private:
  static py::dict tableOf(Stream stream, const Samples& samples) {
    py::dict table;
    std::vector<double> times;
    times.reserve(samples.times.size());
    for (const std::int64_t time : samples.times) times.push_back(secondsIn(Nanoseconds(time)));
    table["time_s"] = arrayOf(times);
    table["gap_s"] = arrayOf(samples.gaps);
    auto column = samples.columns.begin();
    for (const std::string& name : replay::columnsOf(stream)) {
      table[py::str(name)] = arrayOf(*column++);
    }
    if (stream == Stream::respiration) {
      for (std::size_t i = 0; i < times.size(); ++i) {
        times[i] = secondsIn(Nanoseconds(samples.times[i]) - replay::processedDelay);
      }
      table[replay::processedTimeColumn] = arrayOf(times);
    }
    return table;
  }

  std::vector<CaptureEvent> eventsNamed(const std::string& name) const {
    std::vector<CaptureEvent> found;
    for (const CaptureEvent& event : events_) {
      if (event.event == name) found.push_back(event);
    }
    return found;
  }

  py::dict eventTable() const {
    py::list times;
    py::list names;
    py::list streams;
    std::vector<double> durations;
    for (const CaptureEvent& event : events_) {
      times.append(event.time);
      names.append(event.event);
      streams.append(event.stream);
      durations.push_back(event.duration.value_or(std::numeric_limits<double>::quiet_NaN()));
    }
    py::dict table;
    table["time_s"] = times;
    table["event"] = names;
    table["stream"] = streams;
    table["duration_s"] = arrayOf(durations);
    return table;
  }

  // The columns of the CSV file: behind the time comes the date.
  py::object frameOf(const py::object& pandas, const py::dict& table,
                     const py::array& nanoseconds) const {
    py::object frame = pandas.attr("DataFrame")(table);
    const py::object dates =
        pandas.attr("to_datetime")(nanoseconds + py::int_(dateOrError().count()),
                                   py::arg("unit") = "ns", py::arg("utc") = true);
    frame.attr("insert")(1, "date_utc", dates);
    return frame;
  }

  Nanoseconds dateOrError() const {
    // Beyond it a date in the session would not fit into 64 bits.
    constexpr Nanoseconds latest = std::chrono::seconds(8'000'000'000);
    if (preamble_.began >= Nanoseconds{} && preamble_.began <= latest) return preamble_.began;
    throw py::value_error("the date in the head of the capture is invalid");
  }

  capture::Preamble preamble_;
  Zephly::PerStream<py::array> times_;  // int64 nanoseconds
  Zephly::PerStream<py::dict> tables_;
  std::vector<CaptureEvent> events_;
  std::vector<std::int64_t> eventTimes_;  // nanoseconds
  std::vector<std::string> damage_;
  Nanoseconds end_{};
};

void bindTables(py::class_<Capture>& type) {
  type.def_property_readonly(
          "ecg", [](const Capture& self) { return self.table(Stream::ecg); },
          "ecg_mV: 500 samples a second, unfiltered; full scale is +-2.42.")
      .def_property_readonly(
          "respiration", [](const Capture& self) { return self.table(Stream::respiration); },
          "raw: 500 samples a second, full scale is +-2.42; processed: filtered, 0 to 1, and "
          "later than raw; processed_time_s: the time of the breath that processed shows.")
      .def_property_readonly(
          "temperature", [](const Capture& self) { return self.table(Stream::temperature); },
          "skin_degC, ambient_degC: one sample a second; body_estimate_degC: the engine's estimate "
          "of "
          "the core temperature, nan until it has settled with the 20th reading.")
      .def_property_readonly(
          "battery", [](const Capture& self) { return self.table(Stream::battery); },
          "charge_percent; charging: 0 or 1. A sample for each report of the strap.")
      .def_property_readonly(
          "motion", [](const Capture& self) { return self.table(Stream::motion); },
          "qw, qx, qy, qz: orientation; ax_g, ay_g, az_g: acceleration; 30 samples a second.");
}

}  // namespace

void bindCapture(py::module_& module) {
  py::register_exception<capture::CaptureError>(module, "CaptureError", PyExc_OSError)
      .attr("__doc__") = "The file is not a capture, or its head cannot be read.";

  py::class_<CaptureEvent>(module, "CaptureEvent", "One event of a capture.")
      .def_readonly("time", &CaptureEvent::time, "Seconds since the session began.")
      .def_readonly("event", &CaptureEvent::event,
                    "'connected', 'link lost', 'electrodes off', 'electrodes on', 'push-up', "
                    "'sit-up', 'jump' or 'gap'.")
      .def_readonly("stream", &CaptureEvent::stream, "Of a gap, the name of its stream; else None.")
      .def_readonly("duration", &CaptureEvent::duration,
                    "Seconds: of a gap, or from a lost link to the next connection; else None.")
      .def("__repr__", &describeEvent);

  py::class_<Capture> type(module, "Capture", R"(A capture (.zcap) as arrays.

    capture = zephly.Capture("walk.zcap")
    plot(capture.ecg["time_s"], capture.ecg["ecg_mV"])

The streams are dictionaries of arrays of the same length, with the names that `zephly export --csv` gives its columns,
and the same values:

  time_s      float64: when the sample was taken, in seconds since the session began
              (also processed_time_s of the respiration)
  gap_s       float64: how long no sample was taken before it; nan when it follows the one before
  ...         float32: the values

A capture that is cut or damaged gives everything before the damage, and `damage` is not empty. CaptureError is raised
for a file that is no capture or cannot be opened, and when its head is damaged.

The file is read once, by the constructor, through a session of the kit; the interpreter's lock is released meanwhile.
RuntimeError when another thread runs a queue. The session's part of the memory, about 50 KB, is not released.)");
  type.def(py::init<std::filesystem::path>(), py::arg("path"));
  bindTables(type);
  type.def_property_readonly("events", &Capture::events,
                             "All events in order of time: a list of CaptureEvent.")
      .def_property_readonly("gaps", &Capture::gaps, "The events 'gap', in order of time.")
      .def_property_readonly("repetitions", &Capture::repetitions,
                             "Times in seconds of the counted 'push-up', 'sit-up' and 'jump'.")
      .def_property_readonly("preamble", &Capture::preamble,
                             "program, source, simulated; began: numpy.datetime64, UTC.")
      .def_property_readonly("duration", &Capture::duration,
                             "Seconds from the beginning of the session to its end.")
      .def_property_readonly("damage", &Capture::damage,
                             "What is wrong with the file, one line each; empty when it is whole.")
      .def("to_pandas", &Capture::toPandas,
           "A pandas.DataFrame for each stream and for 'events', with the columns of the CSV files "
           "of `zephly export`; date_utc is a datetime64[ns, UTC]. ImportError without pandas.");
}

}  // namespace zephly_python
