// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads a recording of another device to its end, and checks what holds for every file.
///
///   readSignals(path, {.rate = 250});

#include <tools/vitals/input_error.h>
#include <tools/vitals/signal_file.h>
#include <tools/vitals/signal_names.h>
#include <fuzz/support/require.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace fuzz {

inline void requireOneLine(const std::string& error) {
  require(!error.empty() && error.find('\n') == std::string::npos, "an error is one line");
}

inline void requireOrder(const std::vector<Zephly::recorders::SignalSample>& samples,
                         std::vector<std::optional<Zephly::vitals::Time>>& last) {
  for (const auto& sample : samples) {
    require(sample.signal < last.size(), "only chosen signals");
    require(std::isfinite(sample.value), "finite values");
    auto& before = last[sample.signal];
    require(!before || *before <= sample.time, "times do not decrease within a signal");
    before = sample.time;
  }
}

inline void readSignals(const std::filesystem::path& path,
                        const Zephly::recorders::OpenOptions& options) {
  using namespace Zephly::recorders;
  try {
    const auto file = openSignalFile(path, options);
    require(!file->signals().empty() && !file->files().empty(), "a signal and a file at least");
    try {
      const SignalChoice choice = chooseSignals(*file, {});
      require(choice.ecg || choice.respiration, "a signal is chosen");
    } catch (const InputError& error) {
      requireOneLine(error.what());
    }
    std::vector<std::size_t> chosen = {0};
    if (file->signals().size() > 1) chosen.push_back(1);
    file->choose(chosen);
    std::vector<std::optional<Zephly::vitals::Time>> last(chosen.size());
    std::vector<SignalSample> samples;
    while (file->next(samples)) {
      requireOrder(samples, last);
      require(file->part() >= 0 && file->part() <= 1, "a part of the file");
    }
  } catch (const InputError& error) {
    requireOneLine(error.what());
  }
}

}  // namespace fuzz
