// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A recording of another device as an input of `zephly vitals`.

#include <tools/vitals/signal_file.h>
#include <tools/vitals/signal_names.h>
#include <tools/vitals/vitals_input.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Zephly::recorders {

class SignalInput final : public VitalsInput {
 public:
  /// Throws InputError when the signals cannot be chosen.
  SignalInput(std::filesystem::path path, std::unique_ptr<SignalFile> file,
              const SignalOptions& options, bool searchBack);

  AboutInput about() const override;
  std::vector<std::filesystem::path> files() const override { return file_->files(); }
  AnnotationClock annotationClock() const override;
  std::vector<std::string> play(vitals::Receiver& receiver,
                                const std::function<void(double part)>& progress) override;

 private:
  std::filesystem::path path_;
  std::unique_ptr<SignalFile> file_;
  SignalChoice choice_;
  bool searchBack_;
  vitals::Time end_{};  // of what has been played
};

}  // namespace Zephly::recorders
