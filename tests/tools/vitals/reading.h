// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Files for the tests of readers, and what a reader gives.

#include <tests/support/captures.h>
#include <tools/vitals/input_error.h>
#include <tools/vitals/signal_file.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace reading {

inline captures::Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

inline void appendInt16(captures::Bytes& bytes, int value) {
  const auto bits = static_cast<unsigned>(value);
  bytes.push_back(static_cast<std::uint8_t>(bits & 0xFFU));
  bytes.push_back(static_cast<std::uint8_t>(bits >> 8U & 0xFFU));
}

/// All samples of these signals.
inline std::vector<Zephly::recorders::SignalSample> readAll(
    Zephly::recorders::SignalFile& file, const std::vector<std::size_t>& signals) {
  file.choose(signals);
  std::vector<Zephly::recorders::SignalSample> all;
  std::vector<Zephly::recorders::SignalSample> piece;
  while (file.next(piece)) all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

inline std::vector<float> valuesOf(const std::vector<Zephly::recorders::SignalSample>& samples,
                                   std::size_t signal = 0) {
  std::vector<float> values;
  for (const auto& sample : samples) {
    if (sample.signal == signal) values.push_back(sample.value);
  }
  return values;
}

inline std::vector<double> secondsOf(const std::vector<Zephly::recorders::SignalSample>& samples,
                                     std::size_t signal = 0) {
  std::vector<double> times;
  for (const auto& sample : samples) {
    if (sample.signal == signal) times.push_back(static_cast<double>(sample.time.count()) / 1e9);
  }
  return times;
}

/// Opens a file and reads its first signal; the error without the folder, or "".
inline std::string errorOf(const std::filesystem::path& path,
                           const Zephly::recorders::OpenOptions& options = {}) {
  try {
    const auto file = Zephly::recorders::openSignalFile(path, options);
    readAll(*file, {0});
  } catch (const Zephly::recorders::InputError& error) {
    std::string text = error.what();
    const std::string folder = path.parent_path().string() + "/";
    for (auto at = text.find(folder); at != std::string::npos; at = text.find(folder)) {
      text.erase(at, folder.size());
    }
    return text;
  }
  return "";
}

}  // namespace reading
