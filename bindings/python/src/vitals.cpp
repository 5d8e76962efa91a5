// SPDX-License-Identifier: MIT
#include <bindings/python/src/vitals.h>

#include <bindings/python/src/arrays.h>

#include <vitals/hrv.h>
#include <vitals/vitals.h>

#include <pybind11/numpy.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zephly_python {

namespace vitals = ::Zephly::vitals;

namespace {

using vitals::Beat;
using vitals::Breath;
using vitals::Second;

constexpr double none = std::numeric_limits<double>::quiet_NaN();

double secondsOfTime(vitals::Time time) { return static_cast<double>(time.count()) / 1e9; }

// A time that does not fit, or is not a number, is later or earlier than any: it is ignored there.
vitals::Time timeOf(double seconds) {
  constexpr double farthest = 9e9;
  if (!(std::abs(seconds) < farthest)) return vitals::Time::max();
  return vitals::Time(std::llround(seconds * 1e9));
}

// The times and values of one signal, or the times and states of contact.
template <class Value>
struct Signal {
  py::array times;
  py::array values;

  Signal() = default;
  Signal(const py::object& pair, const char* name) {
    if (pair.is_none()) return;
    if (!py::isinstance<py::tuple>(pair) || py::len(pair) != 2) {
      throw py::type_error(std::string(name) + " must be a tuple of two arrays: times and values");
    }
    times = requireArray<double>(pair[py::int_(0)], 1);
    values = requireArray<Value>(pair[py::int_(1)], 1);
    if (times.size() != values.size()) {
      throw py::value_error("the arrays of " + std::string(name) + " differ in length: " +
                            std::to_string(times.size()) + " and " + std::to_string(values.size()));
    }
  }

  py::ssize_t size() const { return times ? times.size() : 0; }
  const double* time() const {
    return size() > 0 ? static_cast<const double*>(times.data()) : nullptr;
  }
  const Value* value() const {
    return size() > 0 ? static_cast<const Value*>(values.data()) : nullptr;
  }
};

// The next of the three that is earliest. Contact comes before a sample of the same time.
template <class Value>
struct Cursor {
  explicit Cursor(const Signal<Value>& signal)
      : times(signal.time()), values(signal.value()), count(signal.size()) {}

  double time() const {
    return index < count ? times[index] : std::numeric_limits<double>::infinity();
  }
  Value take() { return values[index++]; }

  const double* times;
  const Value* values;
  py::ssize_t count;
  py::ssize_t index = 0;
};

class Collected final : public vitals::Receiver {
 public:
  void beat(const Beat& beat) override { beats.push_back(beat); }
  void breath(const Breath& breath) override { breaths.push_back(breath); }
  void second(const Second& second) override { seconds.push_back(second); }

  std::vector<Beat> beats;
  std::vector<Breath> breaths;
  std::vector<Second> seconds;
};

template <class Number, class Rows, class Get>
py::array columnOf(const Rows& rows, const Get& get) {
  py::array_t<Number> column(static_cast<py::ssize_t>(rows.size()));
  std::transform(rows.begin(), rows.end(), column.mutable_data(), get);
  return column;
}

class VitalsObject {
 public:
  VitalsObject(double ecgRate, double respirationRate, bool searchBack)
      : vitals_({.ecgRate = ecgRate, .respirationRate = respirationRate, .searchBack = searchBack},
                results_) {}
  VitalsObject(const VitalsObject&) = delete;
  VitalsObject& operator=(const VitalsObject&) = delete;

  void process(const std::optional<TimedSamples>& ecg,
               const std::optional<TimedSamples>& respiration,
               const std::optional<TimedContacts>& contact) {
    const auto signalOf = [](const auto& given) -> py::object {
      return given ? py::object(*given) : py::object(py::none());
    };
    const Signal<float> ecgSignal(signalOf(ecg), "ecg");
    const Signal<float> respirationSignal(signalOf(respiration), "respiration");
    const Signal<bool> contactSignal(signalOf(contact), "contact");
    Cursor<float> ecgNext(ecgSignal);
    Cursor<float> respirationNext(respirationSignal);
    Cursor<bool> contactNext(contactSignal);
    const Busy::Use use(busy_);
    inPieces(ecgNext.count + respirationNext.count + contactNext.count, [&](py::ssize_t) {
      const double sample = std::min(ecgNext.time(), respirationNext.time());
      if (contactNext.index < contactNext.count && !(contactNext.time() > sample)) {
        const double time = contactNext.time();
        vitals_.contact(timeOf(time), contactNext.take());
      } else if (ecgNext.index < ecgNext.count && (respirationNext.index == respirationNext.count ||
                                                   !(ecgNext.time() > respirationNext.time()))) {
        const double time = ecgNext.time();
        vitals_.ecg(timeOf(time), ecgNext.take());
      } else if (respirationNext.index < respirationNext.count) {
        const double time = respirationNext.time();
        vitals_.respiration(timeOf(time), respirationNext.take());
      } else {
        const double time = contactNext.time();
        vitals_.contact(timeOf(time), contactNext.take());
      }
    });
  }

  void finish() {
    const Busy::Use use(busy_);
    vitals_.finish();
  }

  py::dict beats() const {
    const auto& rows = results_.beats;
    py::dict table;
    table["time_s"] = columnOf<double>(rows, [](const Beat& b) { return secondsOfTime(b.time); });
    table["rr_s"] = columnOf<double>(rows, [](const Beat& b) { return b.rr.value_or(none); });
    table["amplitude"] = columnOf<double>(rows, [](const Beat& b) { return b.amplitude; });
    table["quality"] = columnOf<double>(rows, [](const Beat& b) { return b.quality; });
    py::list classes;
    for (const Beat& beat : rows) classes.append(vitals::beatClassName(beat.kind));
    table["class"] = py::module_::import("numpy").attr("array")(classes, py::arg("dtype") = "U8");
    table["late"] = columnOf<bool>(rows, [](const Beat& b) { return b.late; });
    return table;
  }

  py::dict breaths() const {
    const auto& rows = results_.breaths;
    py::dict table;
    table["time_s"] = columnOf<double>(rows, [](const Breath& b) { return secondsOfTime(b.time); });
    table["duration_s"] =
        columnOf<double>(rows, [](const Breath& b) { return b.duration.value_or(none); });
    table["depth"] = columnOf<double>(rows, [](const Breath& b) { return b.depth; });
    table["quality"] = columnOf<double>(rows, [](const Breath& b) { return b.quality; });
    table["derived"] = columnOf<bool>(rows, [](const Breath& b) { return b.derived; });
    return table;
  }

  py::dict seconds() const {
    const auto& rows = results_.seconds;
    const auto number = [&](auto get) { return columnOf<double>(rows, get); };
    py::dict table;
    table["time_s"] = number([](const Second& s) { return secondsOfTime(s.time); });
    table["heart_rate"] = number([](const Second& s) { return s.heartRate.value_or(none); });
    table["heart_rate_quality"] = number([](const Second& s) { return s.heartRateQuality; });
    table["ecg_quality"] = number([](const Second& s) { return s.ecgQuality; });
    table["breathing_rate"] =
        number([](const Second& s) { return s.breathingRate.value_or(none); });
    table["breathing_quality"] = number([](const Second& s) { return s.breathingQuality; });
    table["breathing_derived"] =
        columnOf<bool>(rows, [](const Second& s) { return s.breathingDerived; });
    table["respiration_quality"] = number([](const Second& s) { return s.respirationQuality; });
    table["contact"] =
        number([](const Second& s) { return s.contact ? (*s.contact ? 1.0 : 0.0) : none; });
    return table;
  }

  py::dict hrv(const std::optional<double>& seconds) const {
    if (seconds && !(*seconds > 0)) throw py::value_error("seconds must be greater than 0");
    std::vector<Beat> sorted = results_.beats;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Beat& left, const Beat& right) { return left.time < right.time; });
    const vitals::Hrv hrv =
        vitals::hrvOf(seconds ? vitals::lastBeats(sorted, timeOf(std::min(*seconds, 8e9)))
                              : std::span<const Beat>(sorted));
    py::dict values;
    values["beats"] = hrv.beats;
    values["nn"] = hrv.nn;
    values["share"] = hrv.share;
    values["mean_nn_ms"] = hrv.meanNN;
    values["sdnn_ms"] = hrv.sdnn;
    values["rmssd_ms"] = hrv.rmssd;
    values["pnn50_percent"] = hrv.pnn50;
    values["sd1_ms"] = hrv.sd1;
    values["sd2_ms"] = hrv.sd2;
    values["lf_ms2"] = hrv.lf;
    values["hf_ms2"] = hrv.hf;
    values["lf_hf"] = hrv.lfOverHf;
    return values;
  }

  py::dict toPandas() const {
    const py::object pandas = importPandas("Vitals.to_pandas()");
    py::dict frames;
    frames["beats"] = pandas.attr("DataFrame")(beats());
    frames["breaths"] = pandas.attr("DataFrame")(breaths());
    frames["seconds"] = pandas.attr("DataFrame")(seconds());
    return frames;
  }

 private:
  Collected results_;
  vitals::Vitals vitals_;
  Busy busy_;
};

void bindResults(py::module_& module) {
  py::class_<Beat>(module, "Beat", "One beat of the heart.")
      .def_property_readonly(
          "time", [](const Beat& self) { return secondsOfTime(self.time); },
          "Seconds, of the R peak.")
      .def_readonly("rr", &Beat::rr, "Seconds since the beat before it; None after a gap.")
      .def_readonly("amplitude", &Beat::amplitude, "Of the R peak, in the unit of the ECG.")
      .def_readonly("quality", &Beat::quality, "0 to 1: how certain it is that this is a beat.")
      .def_property_readonly(
          "kind", [](const Beat& self) { return vitals::beatClassName(self.kind); },
          "'normal', 'ectopic' or 'artefact'.")
      .def_readonly("late", &Beat::late, "Whether it was found by searching back.");
  py::class_<Breath>(module, "Breath", "One breath.")
      .def_property_readonly(
          "time", [](const Breath& self) { return secondsOfTime(self.time); },
          "Seconds, of the end of inspiration.")
      .def_readonly("duration", &Breath::duration,
                    "Seconds since the breath before it; None after a gap.")
      .def_readonly("depth", &Breath::depth, "Relative to the last minute: 1 is usual.")
      .def_readonly("quality", &Breath::quality, "0 to 1.")
      .def_readonly("derived", &Breath::derived, "Whether it is from the ECG.");
  py::class_<Second>(module, "Second", "The vitals at the end of one second; None: not known.")
      .def_property_readonly(
          "time", [](const Second& self) { return secondsOfTime(self.time); },
          "Seconds, of its end.")
      .def_readonly("heartRate", &Second::heartRate, "Beats per minute, or None.")
      .def_readonly("heartRateQuality", &Second::heartRateQuality, "0 to 1.")
      .def_readonly("ecgQuality", &Second::ecgQuality, "0 to 1.")
      .def_readonly("breathingRate", &Second::breathingRate, "Breaths per minute, or None.")
      .def_readonly("breathingQuality", &Second::breathingQuality, "0 to 1.")
      .def_readonly("breathingDerived", &Second::breathingDerived, "Whether it is from the ECG.")
      .def_readonly("respirationQuality", &Second::respirationQuality, "0 to 1.")
      .def_readonly("contact", &Second::contact, "None before the first report.");
}

}  // namespace

void bindVitals(py::module_& module) {
  bindResults(module);
  py::class_<VitalsObject>(module, "Vitals",
                           R"(Beats, heart rate and breathing from raw samples.

    vitals = zephly.Vitals(ecgRate=500, respirationRate=500)
    vitals.process(ecg=(times, values), respiration=(times, values))
    vitals.finish()
    vitals.beats["rr_s"], vitals.seconds["heart_rate"]

Rates are nominal samples per second: of ECG 100 to 1000, of respiration 10 to 1000, 0 for none. Results are dictionaries
of arrays of the same length; nan stands for what is not known. docs/vitals.md says what they mean, and what they must not
be used for.)")
      .def(py::init<double, double, bool>(), py::kw_only(), py::arg("ecgRate") = 500.0,
           py::arg("respirationRate") = 500.0, py::arg("searchBack") = false)
      .def(
          "process", &VitalsObject::process, py::kw_only(), py::arg("ecg") = py::none(),
          py::arg("respiration") = py::none(), py::arg("contact") = py::none(),
          R"(The next samples of each signal: tuples of times (float64, seconds, increasing) and values (float32; contact:
bool, True on the skin, from that time on). They are merged by their times. The next call continues.)")
      .def("finish", &VitalsObject::finish,
           "Completes the results. Samples that follow begin anew, as after a gap.")
      .def_property_readonly("beats", &VitalsObject::beats,
                             "time_s, rr_s, amplitude, quality, class, late.")
      .def_property_readonly("breaths", &VitalsObject::breaths,
                             "time_s, duration_s, depth, quality, derived.")
      .def_property_readonly(
          "seconds", &VitalsObject::seconds,
          "time_s, heart_rate, heart_rate_quality, ecg_quality, breathing_rate, "
          "breathing_quality, breathing_derived, respiration_quality, contact (1, 0 or nan).")
      .def("hrv", &VitalsObject::hrv, py::arg("seconds") = py::none(),
           "Heart rate variability of the last seconds, or of all beats: a dictionary; None: not "
           "known.")
      .def("to_pandas", &VitalsObject::toPandas,
           "A pandas.DataFrame each for 'beats', 'breaths' and 'seconds'. ImportError without "
           "pandas.");
}

}  // namespace zephly_python
