// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Heart rate variability of a window of beats.
///
///   const Hrv hrv = hrvOf(beats);                     // the whole recording
///   const Hrv last = hrvOf(lastBeats(beats, 5min));   // the last five minutes
///
/// Definitions: Task Force of the European Society of Cardiology and the North American Society of
/// Pacing and Electrophysiology, "Heart rate variability: standards of measurement, physiological
/// interpretation, and clinical use", Circulation 93(5), 1996; F. Shaffer and J. P. Ginsberg, "An
/// overview of heart rate variability metrics and norms", Frontiers in Public Health 5:258, 2017.
///
/// NN is an interval between two successive beats that are both normal. Intervals next to an
/// ectopic beat, an artefact or a gap are left out and nothing takes their place: no value is
/// interpolated. For the spectrum this needs a method for samples at any times: N. R. Lomb,
/// "Least-squares frequency analysis of unequally spaced data", Astrophysics and Space Science 39,
/// 1976; J. D. Scargle, "Studies in astronomical time series analysis II", The Astrophysical
/// Journal 263, 1982. No library in Debian has it for C++.
///
/// The same beats give the same bits everywhere: no function of the system's mathematical library
/// is used but the square root, whose result IEC 60559 fixes.

#include <vitals/beat.h>
#include <zephly/platform/export.h>

#include <cstddef>
#include <optional>
#include <span>

namespace Zephly::vitals {

/// Empty: too few intervals, or too short a window.
struct Hrv {
  std::size_t beats = 0;  ///< of any class
  std::size_t nn = 0;     ///< NN intervals
  /// NN intervals over all pairs of successive beats, 0..1. Below 0.8 do not use the rest.
  double share = 0;
  std::optional<double> meanNN;  ///< ms
  std::optional<double> sdnn;    ///< ms, with n - 1
  /// ms, of pairs of successive NN intervals, which share a beat; so are pNN50, SD1 and SD2
  std::optional<double> rmssd;
  std::optional<double> pnn50;  ///< percent of those pairs that differ by more than 50 ms
  std::optional<double> sd1;    ///< ms: of the Poincare plot, across the line of identity
  std::optional<double> sd2;    ///< ms: along it
  /// ms^2, 0.04 to 0.15 Hz and 0.15 to 0.4 Hz. Windows of more than 5 min are cut into segments of
  /// 5 min from their first beat, and the result is the mean of those with enough intervals, as for
  /// the Task Force's long recordings. LF needs 2 min, HF 1 min.
  std::optional<double> lf;
  std::optional<double> hf;
  std::optional<double> lfOverHf;

  friend bool operator==(const Hrv&, const Hrv&) = default;
};

/// `beats` in order of time; beats that were reported late are sorted in. Allocates memory.
ZEPHLY_EXPORT Hrv hrvOf(std::span<const Beat> beats);

/// Those of the last `duration` before and up to the last one.
ZEPHLY_EXPORT std::span<const Beat> lastBeats(std::span<const Beat> beats, Time duration);

}  // namespace Zephly::vitals
