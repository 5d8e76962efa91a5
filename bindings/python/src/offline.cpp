// SPDX-License-Identifier: MIT
#include <bindings/python/src/offline.h>

#include <bindings/python/src/arrays.h>

#include <offline/offline.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

ZEPHLY_PYTHON_TYPE(Recording, py::object, isAnything, "numpy.ndarray[numpy.float32]");
ZEPHLY_PYTHON_TYPE(RecordedFrames, py::object, isAnything,
                   "tuple[numpy.ndarray[numpy.uint64], numpy.ndarray[numpy.uint64]]");

namespace zephly_python {

namespace offline = ::Zephly::offline;

namespace {

template <class Value>
std::span<const Value> spanOf(const py::array& array) {
  return {static_cast<const Value*>(array.data()), static_cast<std::size_t>(array.size())};
}
template <class Value>
std::span<Value> spanOf(py::array_t<Value>& array) {
  return {array.mutable_data(), static_cast<std::size_t>(array.size())};
}

py::array recordingOf(const py::object& samples) {
  if (!py::isinstance<py::array>(samples)) throw py::type_error("expected an array of float32");
  return requireArray<float>(samples, 1);
}

std::vector<offline::FrameTime> framesOf(const std::optional<RecordedFrames>& given,
                                         std::size_t samples) {
  if (!given) return {{samples, 0}};
  if (!py::isinstance<py::tuple>(*given) || py::len(*given) != 2) {
    throw py::type_error(
        "frames must be a tuple of two arrays: numbers of samples and processor times");
  }
  py::array columns[2];
  for (int i = 0; i < 2; ++i) {
    const py::object column = (*given)[py::int_(i)];
    if (!py::isinstance<py::array>(column)) throw py::type_error("expected an array of uint64");
    columns[i] = requireArray<std::uint64_t>(column, 1);
  }
  const auto lengths = spanOf<std::uint64_t>(columns[0]);
  const auto times = spanOf<std::uint64_t>(columns[1]);
  if (lengths.size() != times.size()) {
    throw py::value_error("the arrays of frames differ in length: " +
                          std::to_string(lengths.size()) + " and " + std::to_string(times.size()));
  }
  std::vector<offline::FrameTime> frames;
  frames.reserve(lengths.size());
  for (std::size_t i = 0; i < lengths.size(); ++i) frames.push_back({lengths[i], times[i]});
  return frames;
}

class OfflineEcg {
 public:
  OfflineEcg() = default;
  OfflineEcg(const OfflineEcg& other) = delete;
  OfflineEcg& operator=(const OfflineEcg& other) = delete;

  std::unique_ptr<OfflineEcg> copy() {
    const Busy::Use use(busy_);
    auto result = std::make_unique<OfflineEcg>();
    result->ecg_ = ecg_;
    return result;
  }

  py::object process(const Recording& samples) {
    const py::array raw = recordingOf(samples);
    py::array_t<float> filtered(raw.size());
    const auto in = spanOf<float>(raw);
    const auto out = spanOf(filtered);
    const Busy::Use use(busy_);
    const Unlocked others;
    ecg_.process(in, out);
    return filtered;
  }

 private:
  offline::Ecg ecg_;
  Busy busy_;
};

class OfflineRespiration {
 public:
  OfflineRespiration() = default;
  OfflineRespiration(const OfflineRespiration& other) = delete;
  OfflineRespiration& operator=(const OfflineRespiration& other) = delete;

  std::unique_ptr<OfflineRespiration> copy() {
    const Busy::Use use(busy_);
    auto result = std::make_unique<OfflineRespiration>();
    result->respiration_ = respiration_;
    return result;
  }

  py::tuple process(const Recording& samples, const std::optional<RecordedFrames>& frames) {
    const py::array raw = recordingOf(samples);
    py::array_t<float> filtered(raw.size());
    py::array_t<bool> contact(raw.size());
    const auto in = spanOf<float>(raw);
    const auto out = spanOf(filtered);
    const std::vector<offline::FrameTime> times = framesOf(frames, in.size());
    // NumPy's bool is one byte, 0 or 1.
    const std::span<std::uint8_t> contactOut(
        reinterpret_cast<std::uint8_t*>(contact.mutable_data()), in.size());
    const Busy::Use use(busy_);
    {
      const Unlocked others;
      respiration_.process(in, times, out, contactOut);
    }
    return py::make_tuple(filtered, contact);
  }

 private:
  offline::Respiration respiration_;
  Busy busy_;
};

}  // namespace

void bindOffline(py::module_& module) {
  py::module_ part = module.def_submodule(
      "offline",
      R"(The kit's ECG and respiration processing for whole recordings: the same bits, faster.

    filtered = zephly.offline.Ecg().process(raw)
    filtered, contact = zephly.offline.Respiration().process(raw)

However a recording is cut into calls, the results are the same. Long calls are the quickest.)");
  py::class_<OfflineEcg>(part, "Ecg", "The results of Engine.processECG().")
      .def(py::init())
      .def("process", &OfflineEcg::process, py::arg("samples"),
           "The next samples, float32, 500 a second. The next call continues. The interpreter's "
           "lock is released; Ctrl-C is noticed after the call.")
      .def("copy", &OfflineEcg::copy, "An object that continues from here independently.");
  py::class_<OfflineRespiration>(part, "Respiration",
                                 R"(The results of Engine.processRespiration() and
Engine.processLeadoffDetection(), called for each sample in the order: contact, respiration.)")
      .def(py::init())
      .def("process", &OfflineRespiration::process, py::arg("samples"),
           py::arg("frames") = py::none(),
           R"(The next samples, float32, 500 a second: filtered ones (float32) and contact (bool).

frames: (numbers of samples, processor times in microseconds), both uint64, one pair for each stretch of samples during
which the processor clock of the session did not advance. After a loss of contact the kit resets parts of its filter at
times of that clock; without frames it stands still, and nothing is reset. ValueError when the frames have more or fewer
samples.)")
      .def("copy", &OfflineRespiration::copy, "An object that continues from here independently.");
}

}  // namespace zephly_python
