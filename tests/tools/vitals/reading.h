// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Files for the tests of readers, and what a reader gives.

#include <tests/support/captures.h>
#include <tools/vitals/input_error.h>
#include <tools/vitals/signal_file.h>

#include <gtest/gtest.h>

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

/// Samples of 16 bits.
inline captures::Bytes int16Bytes(const std::vector<int>& values) {
  captures::Bytes bytes;
  for (const int value : values) appendInt16(bytes, value);
  return bytes;
}

/// All samples of these signals.
inline std::vector<Zephly::recorders::SignalSample> readAll(
    Zephly::recorders::SignalFile& file, const std::vector<std::size_t>& signals) {
  file.choose(signals);
  std::vector<Zephly::recorders::SignalSample> all;
  std::vector<Zephly::recorders::SignalSample> piece;
  double part = 0;
  while (file.next(piece)) {
    all.insert(all.end(), piece.begin(), piece.end());
    EXPECT_GT(file.part(), part);
    part = file.part();
  }
  EXPECT_EQ(part, 1);
  EXPECT_FALSE(file.next(piece)) << "after the end";
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

/// Opens a file and reads these signals; the error without the folder, or "".
inline std::string errorOf(const std::filesystem::path& path,
                           const Zephly::recorders::OpenOptions& options = {},
                           const std::vector<std::size_t>& signals = {0}) {
  try {
    const auto file = Zephly::recorders::openSignalFile(path, options);
    readAll(*file, signals);
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
