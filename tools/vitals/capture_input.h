// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A capture as an input of `zephly vitals`. It is read twice, because the strap's clock is known
/// only after the whole capture was read.

#include <capture/record.h>
#include <hosts/replay/capture_player.h>
#include <hosts/replay/survey.h>
#include <tools/vitals/vitals_input.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::recorders {

/// What else is in a capture, for those who need more than its vitals.
class CaptureListener {
 public:
  CaptureListener() = default;
  CaptureListener(const CaptureListener&) = delete;
  CaptureListener& operator=(const CaptureListener&) = delete;
  virtual ~CaptureListener() = default;

  /// Before the first record. `timeline` lives until play() returns.
  virtual void begin(const capture::Preamble& preamble, const replay::Timeline& timeline) = 0;
  /// Before the vitals get it.
  virtual void record(const replay::PlayedRecord& record) = 0;
  /// After the last record, when all vitals have been reported.
  virtual void end() {}
};

class CaptureInput final : public VitalsInput {
 public:
  /// Does not own `listener`; null: there is none.
  explicit CaptureInput(std::filesystem::path path, bool searchBack = false,
                        CaptureListener* listener = nullptr)
      : path_(std::move(path)), searchBack_(searchBack), listener_(listener) {}

  AboutInput about() const override;
  std::vector<std::filesystem::path> files() const override { return {path_}; }
  AnnotationClock annotationClock() const override;
  std::vector<std::string> play(vitals::Receiver& receiver,
                                const std::function<void(double part)>& progress) override;
  /// The errors of the capture, once it has been played: what play() returns, in parts.
  const std::vector<replay::Defect>& defects() const { return defects_; }

 private:
  std::filesystem::path path_;
  bool searchBack_;
  CaptureListener* listener_;
  std::chrono::nanoseconds duration_{};
  std::vector<replay::Defect> defects_;
};

}  // namespace Zephly::recorders
