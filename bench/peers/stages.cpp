// SPDX-License-Identifier: MIT
/// @file
/// The stages of offline/ for the comparison in Python (peers.py). Arrays of float64 in, new arrays
/// out.

#include <zephly/dsp/biquad_design.h>
#include <offline/biquad_sections.h>
#include <offline/running_median.h>
#include <offline/running_normalization.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <span>

namespace {

namespace py = pybind11;
using Samples = py::array_t<double, py::array::c_style | py::array::forcecast>;

std::span<const double> input(const Samples& samples) {
  return {samples.data(), static_cast<std::size_t>(samples.size())};
}
template <class Value>
std::span<Value> output(py::array_t<Value>& results) {
  return {results.mutable_data(), static_cast<std::size_t>(results.size())};
}

py::array_t<double> median(const Samples& samples) {
  py::array_t<double> results(samples.size());
  Zephly::offline::RunningMedian().process(input(samples), output(results));
  return results;
}

template <std::size_t size>
py::array_t<float> normalized(const Samples& samples) {
  py::array_t<float> results(samples.size());
  Zephly::offline::RunningNormalization<size>().process(input(samples), output(results));
  return results;
}

py::array_t<double> lowPass(const Samples& samples) {
  py::array_t<double> results(samples.size());
  Zephly::offline::BiquadSections<4> filter(Zephly::designBiquad(BiquadLowpass, 0.1, 1.0));
  double* out = results.mutable_data();
  for (const double sample : input(samples)) *out++ = filter.step(sample);
  return results;
}

}  // namespace

PYBIND11_MODULE(zephly_stages, module) {
  module.def("median", &median, "Of the latest 300 samples.");
  module.def("normalized_1000", &normalized<1000>);
  module.def("normalized_5000", &normalized<5000>);
  module.def("low_pass", &lowPass, "Four sections at 0.1.");
}
