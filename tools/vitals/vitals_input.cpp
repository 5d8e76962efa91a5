// SPDX-License-Identifier: MIT
#include <tools/vitals/vitals_input.h>

#include <capture/format.h>
#include <tools/vitals/capture_input.h>
#include <tools/vitals/input_error.h>
#include <tools/vitals/input_file.h>
#include <tools/vitals/signal_input.h>

#include <array>
#include <cstdint>
#include <system_error>

namespace Zephly::recorders {

namespace {

// By its name too, so that a broken capture is reported as one.
bool isCaptureFile(const std::filesystem::path& path) {
  if (path.extension() == ".zcap") return true;
  std::error_code unknown;
  if (!std::filesystem::is_regular_file(path, unknown)) return false;
  const InputFile file(path);
  if (file.size() < capture::magic.size()) return false;
  std::array<std::uint8_t, capture::magic.size()> bytes{};
  file.read(0, bytes);
  return bytes == capture::magic;
}

}  // namespace

std::unique_ptr<VitalsInput> openVitalsInput(const std::filesystem::path& path,
                                             const InputOptions& options) {
  if (!isCaptureFile(path)) {
    return std::make_unique<SignalInput>(path, openSignalFile(path, options.file), options.signals,
                                         options.searchBack);
  }
  if (options.file.rate || options.signals.ecg || options.signals.respiration) {
    throw InputError(path,
                     "a capture has its signals and rates; leave out --rate, --signal and "
                     "--respiration");
  }
  return std::make_unique<CaptureInput>(path, options.searchBack);
}

}  // namespace Zephly::recorders
