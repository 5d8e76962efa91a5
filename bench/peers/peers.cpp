// SPDX-License-Identifier: MIT
/// @file
/// Compares the kit's filters, or those for whole recordings, with those of C libraries: the same
/// samples; results are compared, then both are timed alternately. Prints rows of a Markdown table,
/// and writes the samples for the comparison in Python:
///
///     zephly_peers SAMPLES_FILE kit|offline
///
/// The file holds float32: a minute of raw ECG, then a minute of raw respiration. Exit code 1 when
/// results differ.

#include <zephly/dsp/biquad_design.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <offline/biquad_sections.h>
#include <offline/running_median.h>
#include <offline/running_normalization.h>

#include <bench/inputs.h>

#include <gsl/gsl_movstat.h>
#include <gsl/gsl_version.h>
// Included after the standard library: with <complex> it uses C++'s complex numbers.
#include <liquid/liquid.h>
#include <complex>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <numbers>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int rounds = 7;

using Samples = std::vector<double>;

// The results of both for the same samples, each from a fresh state.
struct Contest {
  std::string task;
  std::string peer;
  std::function<Samples()> ours;
  std::function<Samples()> theirs;
  double tolerance;  // of the difference, absolute; infinite where something else is compared
};

double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double nanosecondsPerSample(const std::function<Samples()>& run) {
  const double begin = processorSeconds();
  const Samples results = run();
  return (processorSeconds() - begin) * 1e9 / static_cast<double>(results.size());
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double largestDifference(const Samples& left, const Samples& right) {
  if (left.size() != right.size()) return INFINITY;
  double largest = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    largest = std::max(largest, std::abs(left[i] - right[i]));
  }
  return largest;
}

// False when the results differ by more than they may.
bool hold(const Contest& contest) {
  const double difference = largestDifference(contest.ours(), contest.theirs());
  std::vector<double> ours;
  std::vector<double> theirs;
  for (int round = 0; round < rounds; ++round) {
    ours.push_back(nanosecondsPerSample(contest.ours));
    theirs.push_back(nanosecondsPerSample(contest.theirs));
  }
  std::printf("| %s | %s | %.1f | %.1f | %.2f | ", contest.task.c_str(), contest.peer.c_str(),
              median(ours), median(theirs), median(theirs) / median(ours));
  if (std::isinf(contest.tolerance)) {
    std::puts("in between |");
  } else {
    std::printf("%.1e (%.0e) |\n", difference, contest.tolerance);
  }
  if (difference <= contest.tolerance) return true;
  (void)std::fprintf(stderr, "error: %s: results differ by %g\n", contest.task.c_str(), difference);
  return false;
}

Samples widened(const std::vector<float>& samples) { return {samples.begin(), samples.end()}; }

Samples processed(Filter& filter, const Samples& samples) {
  Samples results(samples.size());
  std::transform(samples.begin(), samples.end(), results.begin(),
                 [&](double sample) { return filter.process(sample); });
  return results;
}

// ---- second-order sections

// Published in the same form as zephly/dsp/biquad_filter.h; sections of a low-pass.
Samples liquidLowpass(const Samples& samples, double Fc, int order, double Q) {
  const double k = std::tan(std::numbers::pi * Fc);
  const double norm = 1 / (1 + k / Q + k * k);
  const double gain = k * k * norm;
  std::vector<float> b;
  std::vector<float> a;
  for (int section = 0; section < order / 2; ++section) {
    for (const double value : {gain, 2 * gain, gain}) b.push_back(static_cast<float>(value));
    for (const double value : {1.0, 2 * (k * k - 1) * norm, (1 - k / Q + k * k) * norm}) {
      a.push_back(static_cast<float>(value));
    }
  }
  iirfilt_rrrf filter =
      iirfilt_rrrf_create_sos(b.data(), a.data(), static_cast<unsigned int>(order / 2));
  Samples results(samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    float result = 0;
    iirfilt_rrrf_execute(filter, static_cast<float>(samples[i]), &result);
    results[i] = static_cast<double>(result);
  }
  iirfilt_rrrf_destroy(filter);
  return results;
}

// ---- windows

using Workspace = std::unique_ptr<gsl_movstat_workspace, decltype(&gsl_movstat_free)>;

// A window of `size` samples that ends at the present one, full of zeros at first.
Workspace pastWindow(std::size_t size) {
  return {gsl_movstat_alloc2(size - 1, 0), &gsl_movstat_free};
}

Samples gslMedian(Samples samples, std::size_t size) {
  const Workspace workspace = pastWindow(size);
  Samples results(samples.size());
  const auto in = gsl_vector_view_array(samples.data(), samples.size());
  auto out = gsl_vector_view_array(results.data(), results.size());
  gsl_movstat_median(GSL_MOVSTAT_END_PADZERO, &in.vector, &out.vector, workspace.get());
  return results;
}

// Ours is the mean of the two values above the middle, the peer's that of the two around the
// middle. So the peer's lies between ours and the mean of the two values below the middle, which is
// what ours gives with all signs turned around.
struct Bounds {
  Samples above;
  Samples below;
};

Bounds ourMedians(const Samples& samples, int size) {
  MedianFilter above(size);
  MedianFilter below(size);
  Samples negative(samples.size());
  std::transform(samples.begin(), samples.end(), negative.begin(), std::negate<>());
  Bounds bounds{.above = processed(above, samples), .below = processed(below, negative)};
  for (double& value : bounds.below) value = -value;
  return bounds;
}

// Minimum and maximum alternate, so that both are compared.
Samples ourExtremes(const Samples& samples, int size) {
  NormalizationFilter filter(size, false);
  Samples results;
  results.reserve(2 * samples.size());
  for (const double sample : samples) {
    filter.process(sample);
    results.push_back(filter.min());
    results.push_back(filter.max());
  }
  return results;
}

Samples gslExtremes(Samples samples, std::size_t size) {
  const Workspace workspace = pastWindow(size);
  Samples results(2 * samples.size());
  const auto in = gsl_vector_view_array(samples.data(), samples.size());
  auto smallest = gsl_vector_view_array_with_stride(results.data(), 2, samples.size());
  auto largest = gsl_vector_view_array_with_stride(results.data() + 1, 2, samples.size());
  gsl_movstat_minmax(GSL_MOVSTAT_END_PADZERO, &in.vector, &smallest.vector, &largest.vector,
                     workspace.get());
  return results;
}

// By the largest magnitude of the window, as the normalisation of both chains.
Samples gslNormalized(const Samples& samples, std::size_t size) {
  const Workspace workspace = pastWindow(size);
  Samples magnitudes(samples.size());
  std::transform(samples.begin(), samples.end(), magnitudes.begin(),
                 [](double sample) { return std::abs(sample); });
  Samples results(samples.size());
  const auto in = gsl_vector_view_array(magnitudes.data(), magnitudes.size());
  auto out = gsl_vector_view_array(results.data(), results.size());
  gsl_movstat_max(GSL_MOVSTAT_END_PADZERO, &in.vector, &out.vector, workspace.get());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double range = 2 * results[i];
    results[i] =
        range == 0 ? 0 : static_cast<double>(static_cast<float>((samples[i] + results[i]) / range));
  }
  return results;
}

// ---- for whole recordings

Samples offlineLowpass(const Samples& samples, double Fc, double Q) {
  Zephly::offline::BiquadSections<4> filter(Zephly::designBiquad(BiquadLowpass, Fc, Q));
  Samples results(samples.size());
  std::transform(samples.begin(), samples.end(), results.begin(),
                 [&](double sample) { return filter.step(sample); });
  return results;
}

Samples offlineMedian(const Samples& samples) {
  Zephly::offline::RunningMedian filter;
  Samples results(samples.size());
  filter.process(samples, results);
  return results;
}

template <std::size_t size>
Samples offlineNormalized(const Samples& samples) {
  Zephly::offline::RunningNormalization<size> filter;
  std::vector<float> results(samples.size());
  filter.process(samples, results);
  return widened(results);
}

// ---- the whole program

// The peer's median must lie between the two of ours.
bool medianIsBetween(const Samples& samples) {
  const Bounds bounds = ourMedians(samples, 300);
  const Samples middle = gslMedian(samples, 300);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (middle[i] >= bounds.below[i] && middle[i] <= bounds.above[i]) continue;
    (void)std::fprintf(stderr, "error: median of sample %zu is %g, not in %g..%g\n", i, middle[i],
                       bounds.below[i], bounds.above[i]);
    return false;
  }
  return true;
}

bool writeSamples(const char* path) {
  std::ofstream file(path, std::ios::binary);
  for (const auto* samples : {&bench::ecgSamples(), &bench::respirationSamples()}) {
    file.write(reinterpret_cast<const char*>(samples->data()),
               static_cast<std::streamsize>(samples->size() * sizeof(float)));
  }
  file.close();
  return file.good();
}

std::string liquidName() { return std::string("liquid-dsp ") + liquid_libversion() + ", float32"; }
std::string gslName() { return std::string("GSL ") + gsl_version; }

bool holdAll(const std::vector<Contest>& contests) {
  bool same = true;
  for (const Contest& contest : contests) same = hold(contest) && same;
  return same;
}

bool holdKit(const Samples& ecg, const Samples& breath) {
  const std::string liquid = liquidName();
  const std::string gsl = gslName();
  const bool median = medianIsBetween(breath);
  return holdAll({
             {"four sections, low-pass 0.1", liquid,
              [&] {
                BiquadFilter filter(BiquadLowpass, 0.1, 8, 1.0);
                return processed(filter, ecg);
              },
              [&] { return liquidLowpass(ecg, 0.1, 8, 1.0); }, 1e-5},
             {"median of 300", gsl,
              [&] {
                MedianFilter filter(300);
                return processed(filter, breath);
              },
              [&] { return gslMedian(breath, 300); }, INFINITY},
             {"extremes of 1000, per value", gsl, [&] { return ourExtremes(ecg, 1000); },
              [&] { return gslExtremes(ecg, 1000); }, 0},
             {"extremes of 5000, per value", gsl, [&] { return ourExtremes(breath, 5000); },
              [&] { return gslExtremes(breath, 5000); }, 0},
         }) &&
         median;
}

bool holdOffline(const Samples& ecg, const Samples& breath) {
  const std::string gsl = gslName();
  return holdAll({
      {"four sections, low-pass 0.1", liquidName(), [&] { return offlineLowpass(ecg, 0.1, 1.0); },
       [&] { return liquidLowpass(ecg, 0.1, 8, 1.0); }, 1e-5},
      {"median of 300", gsl, [&] { return offlineMedian(breath); },
       [&] { return gslMedian(breath, 300); }, INFINITY},
      {"normalisation over 1000", gsl, [&] { return offlineNormalized<1000>(ecg); },
       [&] { return gslNormalized(ecg, 1000); }, 0},
      {"normalisation over 5000", gsl, [&] { return offlineNormalized<5000>(breath); },
       [&] { return gslNormalized(breath, 5000); }, 0},
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc == 3 ? argv[2] : "";
  if (what != "kit" && what != "offline") {
    (void)std::fputs("usage: zephly_peers SAMPLES_FILE kit|offline\n", stderr);
    return 2;
  }
  if (!writeSamples(argv[1])) {
    (void)std::fprintf(stderr, "error: cannot write %s\n", argv[1]);
    return 1;
  }
  const Samples ecg = widened(bench::ecgSamples());
  const Samples breath = widened(bench::respirationSamples());
  return (what == "kit" ? holdKit(ecg, breath) : holdOffline(ecg, breath)) ? 0 : 1;
}
