// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An input of `zephly vitals`, a capture or a recording of another device, played through the
/// vitals.
///
///   const auto input = openVitalsInput("101.hea", {});
///   input->play(receiver, [] {});
///   std::cout << summary.text(input->about());

#include <tools/vitals/output_files.h>
#include <tools/vitals/signal_file.h>
#include <tools/vitals/signal_names.h>
#include <tools/vitals/vitals_summary.h>
#include <vitals/vitals.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Zephly::recorders {

struct InputOptions {
  OpenOptions file = {};
  SignalOptions signals = {};
  bool searchBack = false;  ///< see vitals/vitals.h
};

class VitalsInput {
 public:
  VitalsInput() = default;
  VitalsInput(const VitalsInput&) = delete;
  VitalsInput& operator=(const VitalsInput&) = delete;
  virtual ~VitalsInput() = default;

  /// The duration is that of what has been played.
  virtual AboutInput about() const = 0;
  /// Every file that is read: none of them may be replaced by an output.
  virtual std::vector<std::filesystem::path> files() const = 0;
  virtual AnnotationClock annotationClock() const = 0;
  /// Once. `progress` is called now and then with the part that has been played, 0 to 1; an
  /// exception of it ends the play. Throws an exception of one line when the input is broken, and
  /// nothing is to be made of what was reported until then. Otherwise returns the defects of the
  /// input, one line each; everything before them was played.
  virtual std::vector<std::string> play(vitals::Receiver& receiver,
                                        const std::function<void(double part)>& progress) = 0;
};

/// Throws InputError or capture::CaptureError.
std::unique_ptr<VitalsInput> openVitalsInput(const std::filesystem::path& path,
                                             const InputOptions& options);

}  // namespace Zephly::recorders
