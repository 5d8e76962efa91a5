// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A WFDB record: a header and its files of samples in format 16 or 212 (G. B. Moody: WFDB
/// Applications Guide, header(5), signal(5)).
///
///   WfdbReader record("101.hea");
///
/// A sample with the value that the format reserves for "none" is left out. The number of samples
/// and the checksums of the header are checked.

#include <tools/vitals/input_file.h>
#include <tools/vitals/signal_file.h>
#include <tools/vitals/wfdb_header.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace Zephly::recorders {

class WfdbReader final : public SignalFile {
 public:
  /// Opens the header and every file of the record. Throws InputError.
  explicit WfdbReader(const std::filesystem::path& header);

  const char* format() const override { return "WFDB"; }
  const std::vector<SignalInfo>& signals() const override { return infos_; }
  std::vector<std::filesystem::path> files() const override;
  std::optional<double> annotationRate() const override { return header_.rate; }
  double part() const override;

  void choose(const std::vector<std::size_t>& signals) override;
  bool next(std::vector<SignalSample>& samples) override;

 private:
  // A signal that is read.
  struct Chosen {
    std::size_t signal = 0;      // of the header
    std::uint16_t checksum = 0;  // so far
  };

  // The signals that share a file. Their samples alternate, frame by frame.
  struct Group {
    InputFile file;
    std::size_t first = 0;  // of the header's signals
    std::size_t count = 0;
    unsigned perFrame = 0;  // samples of all of them
  };

  void openGroups();
  void checkLengths();
  /// The position of a sample of the group, or of the end of its samples, in bytes of its file.
  std::uint64_t offsetOf(const Group& group, std::uint64_t sample) const;
  /// Samples of the group from `frame` on.
  void readGroup(const Group& group, std::uint64_t frame, std::uint64_t frames,
                 std::vector<std::int16_t>& values) const;
  void take(const Group& group, std::size_t place, std::uint64_t frame,
            const std::vector<std::int16_t>& values, std::vector<SignalSample>& samples);
  void checkSums() const;

  std::filesystem::path path_;
  WfdbHeader header_;
  std::vector<SignalInfo> infos_;
  std::vector<Group> groups_;
  std::uint64_t frames_ = 0;
  std::uint64_t next_ = 0;  // frame
  std::vector<Chosen> chosen_;
};

}  // namespace Zephly::recorders
