// SPDX-License-Identifier: MIT
#include <capture/capture_error.h>

#include <capture/text.h>

namespace Zephly::capture {

CaptureError::CaptureError(Kind kind, const std::filesystem::path& file, std::uint64_t offset,
                           const std::string& what)
    : std::runtime_error(printable(file.string()) + ": at byte " + std::to_string(offset) + ": " +
                         what),
      kind_(kind),
      offset_(offset),
      reason_(what) {}

CaptureError::CaptureError(const std::filesystem::path& file, const std::string& what)
    : std::runtime_error(printable(file.string()) + ": " + what),
      kind_(Kind::unusable),
      offset_(0),
      reason_(what) {}

}  // namespace Zephly::capture
