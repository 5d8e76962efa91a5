// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What `zephly process` was asked for.

#include <cstddef>
#include <filesystem>
#include <vector>

namespace Zephly::processing {

/// The forms in which the signals are written. They are all that a result depends on besides the
/// capture and the version of the program.
struct Forms {
  bool hdf5 = false;
  bool edf = false;
  bool edfDiscontinuous = false;
  bool csv = false;

  friend bool operator==(const Forms&, const Forms&) = default;
};

struct ProcessOptions {
  std::vector<std::filesystem::path> captures;
  std::filesystem::path out;  ///< a directory, which holds one directory for each capture
  Forms forms;
  std::size_t jobs = 1;  ///< captures at the same time
  bool cohort = true;    ///< write cohort.csv
};

}  // namespace Zephly::processing
