// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A capture as an input of `zephly vitals`. It is read twice, because the strap's clock is known
/// only after the whole capture was read.

#include <tools/vitals/vitals_input.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::recorders {

class CaptureInput final : public VitalsInput {
 public:
  CaptureInput(std::filesystem::path path, bool searchBack)
      : path_(std::move(path)), searchBack_(searchBack) {}

  AboutInput about() const override;
  std::vector<std::filesystem::path> files() const override { return {path_}; }
  AnnotationClock annotationClock() const override;
  std::vector<std::string> play(vitals::Receiver& receiver,
                                const std::function<void(double part)>& progress) override;

 private:
  std::filesystem::path path_;
  bool searchBack_;
  std::chrono::nanoseconds duration_{};
};

}  // namespace Zephly::recorders
