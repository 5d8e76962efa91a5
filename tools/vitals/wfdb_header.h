// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The header of a WFDB record (G. B. Moody: WFDB Applications Guide, header(5)): the text file
/// that names the signals, where they are and how they are scaled.
///
///   const WfdbHeader header = parseWfdbHeader(text, "101.hea");
///   header.signals[0].file;  // "101.dat"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::recorders {

enum class WfdbFormat { bits16, bits212 };

struct WfdbSignal {
  std::string file;  ///< beside the header
  WfdbFormat format = WfdbFormat::bits16;
  unsigned perFrame = 1;     ///< samples in a frame
  unsigned skew = 0;         ///< frames by which it is early in the file
  std::uint64_t prolog = 0;  ///< bytes of the file before the first sample
  double gain = 200;         ///< steps per unit
  double baseline = 0;       ///< the step of 0 units
  std::string unit = "mV";
  std::optional<int> checksum = std::nullopt;  ///< the low 16 bits of the sum of all samples
  std::uint64_t checksumAt = 0;                ///< where the header has it
  std::string name;
  std::uint64_t at = 0;  ///< where the signal's line begins
};

struct WfdbHeader {
  double rate = 250;                                   ///< frames per second
  std::optional<std::uint64_t> frames = std::nullopt;  ///< empty: until the end of the file
  std::uint64_t framesAt = 0;                          ///< where the header has it
  std::vector<WfdbSignal> signals;                     ///< 1 or more
};

/// `file` is named in errors. Throws InputError for what is wrong, and for what is not supported:
/// records of several segments, other formats than 16 and 212, signals in other folders.
WfdbHeader parseWfdbHeader(std::string_view text, const std::filesystem::path& file);

}  // namespace Zephly::recorders
