// SPDX-License-Identifier: MIT
#include <bindings/python/src/filters.h>

#include <bindings/python/src/arrays.h>

#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/butterworth_filter.h>
#include <zephly/dsp/ecg_multi_bandpass_filter.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/dsp/respiration_filter.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace zephly_python {

namespace {

// Nine hours at 500 samples a second. C++ takes any int; a slip in Python should not ask for all of
// memory.
constexpr std::int64_t largestWindow = std::int64_t{1} << 24;
constexpr int deepestChain = 64;  // chains in chains call each other

int requireSize(const char* what, std::int64_t size, std::int64_t least) {
  if (size >= least && size <= largestWindow) return static_cast<int>(size);
  throw py::value_error(std::string(what) + " must be " + std::to_string(least) + " to " +
                        std::to_string(largestWindow) + ", not " + std::to_string(size));
}

double requireFrequency(double frequency) {
  if (frequency > 0 && frequency < 0.5) return frequency;
  throw py::value_error("Fc is a fraction of the sample rate, more than 0 and less than 0.5, not " +
                        std::to_string(frequency));
}

double requirePositive(const char* what, double value) {
  if (value > 0 && value <= 1e300) return value;
  throw py::value_error(std::string(what) + " must be a finite number greater than 0, not " +
                        std::to_string(value));
}

// A filter that Python holds, and that a chain may hold too.
class FilterObject {
 public:
  explicit FilterObject(std::shared_ptr<::Filter> filter,
                        std::shared_ptr<Busy> busy = std::make_shared<Busy>())
      : filter_(std::move(filter)), busy_(std::move(busy)) {}
  FilterObject(const FilterObject&) = delete;
  FilterObject& operator=(const FilterObject&) = delete;
  virtual ~FilterObject() = default;

  Samples64 process(const Samples64& samples) {
    return processed<double, double>(*busy_, samples,
                                     [this](double sample) { return filter_->process(sample); });
  }
  void reset() {
    const auto busy = busy_;
    const Busy::Use use(*busy);
    const Unlocked others;
    filter_->reset();
  }
  double lastInput() const { return filter_->lastInput(); }

  bool taken() const { return taken_; }
  virtual int depth() const { return 0; }
  /// Belongs to a chain from now on, and is in use whenever that is.
  virtual void take(const std::shared_ptr<Busy>& busy) {
    taken_ = true;
    busy_ = busy;
  }

  const std::shared_ptr<::Filter>& filter() const { return filter_; }

 protected:
  const std::shared_ptr<Busy>& busy() const { return busy_; }

 private:
  std::shared_ptr<::Filter> filter_;
  std::shared_ptr<Busy> busy_;
  bool taken_ = false;
};

struct Biquad final : FilterObject {
  Biquad(BiquadFilterType type, double Fc, std::int64_t order, double Q)
      : FilterObject(std::make_shared<::BiquadFilter>(requireType(type), requireFrequency(Fc),
                                                      requireSize("order", order, 2),
                                                      requirePositive("Q", Q))) {}

  static BiquadFilterType requireType(BiquadFilterType type) {
    if (type >= BiquadLowpass && type <= BiquadNotch) return type;
    throw py::value_error("there is no BiquadFilterType " + std::to_string(static_cast<int>(type)));
  }
};

struct Median final : FilterObject {
  explicit Median(std::int64_t size)
      : FilterObject(std::make_shared<::MedianFilter>(requireSize("size", size, 3))) {}
};

struct LowCut final : FilterObject {
  LowCut(std::int64_t delayLength, double Fc, std::int64_t order)
      : FilterObject(std::make_shared<::LowCutFilter>(requireSize("delayLength", delayLength, 1),
                                                      requireFrequency(Fc),
                                                      requireSize("order", order, 2))) {}
};

class Normalization final : public FilterObject {
 public:
  Normalization(std::int64_t size, bool symmetric)
      : Normalization(
            std::make_shared<::NormalizationFilter>(requireSize("size", size, 1), symmetric),
            std::make_shared<Busy>()) {}
  Normalization(std::shared_ptr<::NormalizationFilter> filter, std::shared_ptr<Busy> busy)
      : FilterObject(filter, std::move(busy)), normalization_(std::move(filter)) {}

  double min() const { return normalization_->min(); }
  double max() const { return normalization_->max(); }

 private:
  std::shared_ptr<::NormalizationFilter> normalization_;
};

// What the C++ chain owns in place of the filter itself, which Python may hold longer.
class Member final : public ::Filter {
 public:
  explicit Member(std::shared_ptr<::Filter> filter) : filter_(std::move(filter)) {}
  double process(double x) override { return filter_->process(x); }

 private:
  std::shared_ptr<::Filter> filter_;
};

class Chain final : public FilterObject {
 public:
  Chain() : Chain(std::make_shared<::MultiFilter>()) {}

  void add(const std::shared_ptr<FilterObject>& member) {
    if (member.get() == this) throw py::value_error("a chain cannot hold itself");
    if (member->taken()) throw py::value_error("the filter belongs to a chain already");
    if (taken())
      throw py::value_error("the chain belongs to another one and takes no more members");
    if (member->depth() >= deepestChain) {
      throw py::value_error("chains may be " + std::to_string(deepestChain) + " deep, not deeper");
    }
    const auto mine = busy();
    const Busy::Use use(*mine);
    members_.push_back(member);
    chain_->addFilter(std::make_unique<Member>(member->filter()).release());
    depth_ = std::max(depth_, member->depth() + 1);
    member->take(busy());
  }

  int depth() const override { return depth_; }
  void take(const std::shared_ptr<Busy>& busy) override {
    FilterObject::take(busy);
    for (const auto& member : members_) member->take(busy);
  }

 private:
  explicit Chain(std::shared_ptr<::MultiFilter> chain)
      : FilterObject(chain), chain_(std::move(chain)) {}

  std::shared_ptr<::MultiFilter> chain_;
  std::vector<std::shared_ptr<FilterObject>> members_;
  int depth_ = 1;
};

void bindFilterFamily(py::module_& module) {
  py::enum_<BiquadFilterType>(module, "BiquadFilterType", "What a BiquadFilter lets through.")
      .value("BiquadLowpass", BiquadLowpass)
      .value("BiquadHighpass", BiquadHighpass)
      .value("BiquadBandpass", BiquadBandpass)
      .value("BiquadNotch", BiquadNotch)
      .export_values();

  py::class_<FilterObject, std::shared_ptr<FilterObject>>(
      module, "Filter",
      R"(Gives its input back, and is the base of the other filters in double precision.

process() takes a number or a whole float64 array and goes on where the call before ended. Frequencies are fractions of
the sample rate. A filter serves one thread at a time: a second call meanwhile is a RuntimeError.)")
      .def(py::init([] { return std::make_shared<FilterObject>(std::make_shared<::Filter>()); }))
      .def("process", &FilterObject::process, py::arg("samples"),
           "The samples, filtered: float64 in, float64 out.")
      .def("reset", &FilterObject::reset, R"(Brings the filter back to rest as far as its class can.

BiquadFilter settles on its last input; NormalizationFilter fills its window with 0; the others do nothing.)")
      .def("lastInput", &FilterObject::lastInput,
           "The latest sample, where the class keeps it (not in NormalizationFilter and "
           "LowCutFilter); 0.0 at first.");

  py::class_<Biquad, FilterObject, std::shared_ptr<Biquad>>(
      module, "BiquadFilter", R"(A cascade of order / 2 identical second-order sections.

`Fc` is the corner or centre, a fraction of the sample rate, 0 < Fc < 0.5; `order` 2 or more; `Q` above 0.)")
      .def(py::init<BiquadFilterType, double, std::int64_t, double>(), py::arg("type"),
           py::arg("Fc"), py::arg("order"), py::arg("Q"));
  py::class_<Median, FilterObject, std::shared_ptr<Median>>(
      module, "MedianFilter",
      R"(A running median over `size` samples, 3 or more, one rank above the textbook's.

The window starts full of 0.0.)")
      .def(py::init<std::int64_t>(), py::arg("size"));
  py::class_<Normalization, FilterObject, std::shared_ptr<Normalization>>(
      module, "NormalizationFilter",
      R"(Scales to 0..1 by the extremes of the latest `size` samples, 1 or more.

`symmetric` widens the range to one about 0, which then maps to 0.5. The window starts full of 0.0.)")
      .def(py::init<std::int64_t, bool>(), py::arg("size"), py::arg("symmetric"))
      .def("min", &Normalization::min,
           "The lower end of the range that maps to 0..1; 0.0 at first.")
      .def("max", &Normalization::max, "The upper end of that range; 1.0 at first.");
  py::class_<LowCut, FilterObject, std::shared_ptr<LowCut>>(
      module, "LowCutFilter",
      R"(The input delayed by `delayLength` - 1 samples, less the low-passed input.

`Fc` and `order` are those of the low-pass, as in BiquadFilter.)")
      .def(py::init<std::int64_t, double, std::int64_t>(), py::arg("delayLength"), py::arg("Fc"),
           py::arg("order"));
  py::class_<Chain, FilterObject, std::shared_ptr<Chain>>(
      module, "MultiFilter", "A chain of filters that is itself a filter.")
      .def(py::init<>())
      .def("addFilter", &Chain::add, py::arg("filter").none(false),
           "Appends a filter, which must not belong to a chain already. It may still be reset by "
           "itself.");
}

struct Butterworth {
  Butterworth(float frequency, std::int64_t sampleRate, ::Zephly::PassType passType,
              float resonance)
      : filter(requireBelowHalf(frequency, sampleRate), static_cast<int>(sampleRate),
               requireType(passType),
               static_cast<float>(requirePositive("resonance", static_cast<double>(resonance)))) {}

  static float requireBelowHalf(float frequency, std::int64_t sampleRate) {
    requireSize("sampleRate", sampleRate, 1);
    if (frequency > 0 && frequency < static_cast<float>(sampleRate) / 2) return frequency;
    throw py::value_error(
        "frequency must be more than 0 and less than half of the sample rate, not " +
        std::to_string(frequency));
  }
  static ::Zephly::PassType requireType(::Zephly::PassType type) {
    if (type == ::Zephly::Highpass || type == ::Zephly::Lowpass) return type;
    throw py::value_error("there is no PassType " + std::to_string(static_cast<int>(type)));
  }

  ::Zephly::ButterworthFilter filter;
  Busy busy;
};

template <class Processor>
struct Guarded {
  Processor processor;
  Busy busy;
};

struct Respiration {
  ::Zephly::RespirationFilter chain;
  std::shared_ptr<Busy> busy = std::make_shared<Busy>();
};

// The stages live as long as the process.
template <class Stage>
std::shared_ptr<Stage> borrowed(Stage* stage) {
  return {stage, [](Stage*) {}};
}

void bindSinglePrecision(py::module_& module) {
  py::enum_<::Zephly::PassType>(module, "PassType", "Which side of the cut-off frequency passes.")
      .value("Highpass", ::Zephly::Highpass)
      .value("Lowpass", ::Zephly::Lowpass)
      .export_values();
  py::class_<Butterworth, std::shared_ptr<Butterworth>>(
      module, "ButterworthFilter", R"(A second-order filter in single precision.

`frequency` is the cut-off in hertz, `sampleRate` in samples a second, `resonance` the damping.)")
      .def(py::init<float, std::int64_t, ::Zephly::PassType, float>(), py::arg("frequency"),
           py::arg("sampleRate"), py::arg("passType"), py::arg("resonance"))
      .def(
          "process",
          [](Butterworth& self, const Samples32& samples) -> Samples32 {
            return processed<float, float>(
                self.busy, samples, [&](float sample) { return self.filter.process(sample); });
          },
          py::arg("samples"), "The samples, filtered: float32 in, float32 out.");

  using Ecg = Guarded<::Zephly::ECGMultiBandpassFilter>;
  py::class_<Ecg, std::shared_ptr<Ecg>>(module, "ECGMultiBandpassFilter",
                                        "The ECG chain alone; for 500 samples a second.")
      .def(py::init<>())
      .def(
          "process",
          [](Ecg& self, const Samples32& samples) -> Samples32 {
            return processed<float, float>(
                self.busy, samples, [&](float sample) { return self.processor.process(sample); });
          },
          py::arg("samples"),
          "The samples, filtered and normalised to 0..1: float32 in, float32 out.");

  py::class_<Respiration, std::shared_ptr<Respiration>>(
      module, "RespirationFilter", "The respiration chain alone; for 500 samples a second.")
      .def(py::init<>())
      .def(
          "process",
          [](Respiration& self, const Samples32& samples) -> Samples32 {
            return processed<float, float>(
                *self.busy, samples, [&](float sample) { return self.chain.process(sample); });
          },
          py::arg("samples"),
          "The samples, filtered and normalised to 0..1: float32 in, float32 out.")
      .def_property_readonly(
          "highPass",
          [](const Respiration& self) {
            return std::make_shared<FilterObject>(borrowed<::Filter>(self.chain.highPass),
                                                  self.busy);
          },
          "The fifth stage, for those who reset it.")
      .def_property_readonly(
          "normalization",
          [](const Respiration& self) {
            return std::make_shared<Normalization>(borrowed(self.chain.normalization), self.busy);
          },
          "The sixth stage, for those who reset it.");

  using Leadoff = Guarded<::Zephly::LeadoffDetector>;
  py::class_<Leadoff, std::shared_ptr<Leadoff>>(module, "LeadoffDetector",
                                                "Detects whether the electrodes touch the skin.")
      .def(py::init<>())
      .def(
          "process",
          [](Leadoff& self, const Samples32& samples) -> Contacts {
            return processed<float, bool>(
                self.busy, samples, [&](float sample) { return self.processor.process(sample); });
          },
          py::arg("samples"),
          "Raw samples, full scale +-2.42: float32 in, bool out, True for contact.");
}

}  // namespace

void bindFilters(py::module_& module) {
  bindFilterFamily(module);
  bindSinglePrecision(module);
}

}  // namespace zephly_python
