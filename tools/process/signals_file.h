// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// signals.h5: a session as one HDF5 file. docs/process.md describes its groups and columns.
///
///   SignalsFile file(path, temporary, timeline, preamble);
///   player.play([&](const replay::PlayedRecord& record) { file.take(record); });
///   file.complete();   // after the last beat, breath and second
///
/// Holds a chunk of each column. `timeline` must outlive it and belong to the same records.

#include <capture/record.h>
#include <hosts/replay/capture_player.h>
#include <hosts/replay/survey.h>
#include <timing/stream_clock.h>
#include <vitals/vitals.h>
#include <zephly/protocol/streams.h>

#include <filesystem>
#include <memory>

namespace Zephly::processing {

class SignalsFile final : public vitals::Receiver {
 public:
  /// Writes `name`, which is called `path` in messages. Throws std::runtime_error, as the other
  /// functions do.
  SignalsFile(const std::filesystem::path& path, const std::filesystem::path& name,
              const replay::Timeline& timeline, const capture::Preamble& preamble);
  SignalsFile(const SignalsFile&) = delete;
  SignalsFile& operator=(const SignalsFile&) = delete;
  ~SignalsFile() override;

  void take(const replay::PlayedRecord& record);
  void beat(const vitals::Beat& beat) override;
  void breath(const vitals::Breath& breath) override;
  void second(const vitals::Second& second) override;
  /// The last call: writes it through to the disk.
  void complete();

 private:
  class Tables;

  std::unique_ptr<Tables> tables_;
};

}  // namespace Zephly::processing
