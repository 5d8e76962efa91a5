// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One sampling rate to another, for whole recordings.
///
///   std::vector<double> at500 = resample(rows, 100, 500);
///
/// Linear interpolation by a triangle (J. O. Smith and P. Gossett, "A flexible sampling-rate
/// conversion method", ICASSP 1984, with the linear kernel): each output is the mean of the rows
/// under a triangle around its place, weighted by it. Upwards the triangle reaches to the
/// neighbouring rows, which is plain linear interpolation; downwards it reaches to the neighbouring
/// outputs, which keeps out what the lower rate cannot hold, so every row counts in some output.
/// Beyond the first and last row their values hold. The outputs divide the same stretch of time as
/// the rows: output i is centred on (i + 0.5) * from / to - 0.5 rows.

#include <cstddef>
#include <vector>

namespace Zephly::simulator {

/// round(rows * to / from), and at least 1 for at least one row. Rates are positive.
std::size_t resampledCount(std::size_t rows, double from, double to);

/// resampledCount values; empty for no rows. Equal rates give the rows back unchanged.
std::vector<double> resample(const std::vector<double>& rows, double from, double to);

}  // namespace Zephly::simulator
