// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The forms of the stages that use vector instructions, one table for each instruction set.
///
///   if (const VectorForms* forms = vectorForms()) forms->medians(samples, count, medians);
///
/// Each function gives the bits of the scalar class beside it, for the inputs that it names. The
/// tables are compiled from vector_forms.cpp by Google Highway: SSSE3 and AVX2 on x86-64, NEON on
/// 64-bit ARM, and none elsewhere or with -DZEPHLY_VECTORS=OFF.

#include <offline/section_lanes.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace Zephly::offline {

/// The stages for one instruction set. Safe to call from several threads.
struct VectorForms {
  const char* name;

  /// Whether every sample is finite; and none is -0.0.
  bool (*finite)(const double* samples, std::size_t count);
  bool (*ordinary)(const double* samples, std::size_t count);
  bool (*finiteFloats)(const float* samples, std::size_t count);

  /// Running medians of 300. `samples` begins with 299 samples of history, to which `count` new
  /// ones are added; all are ordinary. One median for each new sample. Returns how many segments
  /// had to be sorted twice, for its test.
  std::size_t (*medians)(const double* samples, std::size_t count, double* medians);

  /// A part of medians(), for its test: sorts each column of a table of 1,024 rows of `columns`
  /// keys. Without it medians() would be right, but slow. The table begins at a multiple of 32
  /// bytes.
  std::size_t columns;
  void (*sortColumns)(double* keys);

  /// RunningNormalization: a run inside its window. `window` is the place of the first sample,
  /// `largest` the largest magnitude since the window began. The samples are finite.
  void (*normalize)(const double* samples, std::size_t count, double* window, double* largest,
                    float* out);
  /// Each element becomes the largest of itself and those after it. `count` is a multiple of 4.
  void (*maximaToTheEnd)(double* window, std::size_t count);

  /// Any samples, any counts.
  void (*respirationSections)(SectionLanes& lanes, const RespirationRun& run);
  /// `lowPassed` is the output of the low-pass, and continues the 109 samples before it; `out` is
  /// that of the baseline cut, rounded to single precision.
  void (*ecgSections)(SectionLanes& lanes, const float* in, std::size_t count, double* lowPassed,
                      double* out);

  /// ContactDetector. `samples` begins with 69 samples of history, to which `count` new ones are
  /// added, at least 64; all are finite.
  void (*contacts)(const float* samples, std::size_t count, std::uint8_t* contact);
};

/// The tables that this processor can run, the fastest first.
std::span<const VectorForms* const> allVectorForms();

/// The table to use; null: the scalar forms. The fastest one at first. Null also while the calling
/// thread flushes subnormal numbers to zero, because then they cannot be sorted.
const VectorForms* vectorForms();

/// For tests and benchmarks. Null chooses the scalar forms.
void useVectorForms(const VectorForms* forms);

}  // namespace Zephly::offline
