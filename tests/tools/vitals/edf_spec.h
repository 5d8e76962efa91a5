// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// EDF and BDF files with any text in their fields.

#include <tests/tools/vitals/reading.h>

#include <string>
#include <vector>

namespace reading {

inline std::string padded(std::string text, std::size_t width) {
  text.resize(width, ' ');
  return text;
}

/// The fields of a signal, and its samples in a data record.
struct EdfSignalSpec {
  std::string label = "ECG";
  std::string unit = "mV";
  std::string physicalMinimum = "-1";
  std::string physicalMaximum = "1";
  std::string digitalMinimum = "-100";
  std::string digitalMaximum = "100";
  std::string perRecord = "2";
};

/// A file as the format has it, with any text in its fields.
struct EdfSpec {
  std::string version = "0";
  std::string kind = {};        // "EDF+C"
  std::string headerSize = {};  // empty: as it is
  std::string records = "1";
  std::string duration = "1";
  std::string signalCount = {};  // empty: as it is
  std::vector<EdfSignalSpec> signals = {{}};
  captures::Bytes data = {};

  captures::Bytes bytes() const {
    const auto each = [&](auto field, std::size_t width) {
      std::string text;
      for (const EdfSignalSpec& signal : signals) text += padded(field(signal), width);
      return text;
    };
    const std::size_t size = 256 * (signals.size() + 1);
    std::string text =
        padded(version, 8) + padded("X X X X", 80) + padded("Startdate X X X X", 80) +
        "01.01.8500.00.00" + padded(headerSize.empty() ? std::to_string(size) : headerSize, 8) +
        padded(kind, 44) + padded(records, 8) + padded(duration, 8) +
        padded(signalCount.empty() ? std::to_string(signals.size()) : signalCount, 4);
    text += each([](const auto& s) { return s.label; }, 16);
    text += each([](const auto&) { return std::string(); }, 80);
    text += each([](const auto& s) { return s.unit; }, 8);
    text += each([](const auto& s) { return s.physicalMinimum; }, 8);
    text += each([](const auto& s) { return s.physicalMaximum; }, 8);
    text += each([](const auto& s) { return s.digitalMinimum; }, 8);
    text += each([](const auto& s) { return s.digitalMaximum; }, 8);
    text += each([](const auto&) { return std::string(); }, 80);
    text += each([](const auto& s) { return s.perRecord; }, 8);
    text += each([](const auto&) { return std::string(); }, 32);
    captures::Bytes file = bytesOf(text);
    file.insert(file.end(), data.begin(), data.end());
    return file;
  }
};

// A data record of EDF+: samples, and the time in an annotation signal of 16 bytes.
inline void appendTimed(captures::Bytes& data, const std::vector<int>& values,
                        const std::string& onset) {
  const captures::Bytes samples = int16Bytes(values);
  data.insert(data.end(), samples.begin(), samples.end());
  std::string text = onset + std::string("\x14\x14\0", 3);
  text.resize(16, '\0');
  data.insert(data.end(), text.begin(), text.end());
}

inline const EdfSignalSpec clockSignal{.label = "EDF Annotations",
                                       .unit = "",
                                       .physicalMinimum = "-1",
                                       .physicalMaximum = "1",
                                       .digitalMinimum = "-32768",
                                       .digitalMaximum = "32767",
                                       .perRecord = "8"};

}  // namespace reading
