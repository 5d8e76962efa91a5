// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// RespirationFilterHelper with a clock that is given instead of the process's.
///
///   ResetTimer timer(4.0F);
///   if (timer.fires(contact, processorTime)) chain.settleHighPass();

#include <cstdint>

namespace Zephly::offline {

/// Starts when contact is lost, and fires once after more than `timeout` seconds of processor time.
class ResetTimer {
 public:
  explicit ResetTimer(float timeout) : timeout_(timeout) {}

  /// For each sample. `now` in microseconds. The call on which it fires does not store its answer.
  bool fires(bool contact, std::uint64_t now) {
    if (lastContact_ && !contact) {
      pending_ = true;
      start_ = now;
    }
    if (pending_ && isLate(now)) {
      pending_ = false;
      return true;
    }
    lastContact_ = contact;
    return false;
  }

  /// Whether it does not fire, and starts nothing, however often it is asked with these. If it is
  /// true, none of these calls is needed.
  bool idles(bool contact, std::uint64_t now) const {
    return lastContact_ == contact && !(pending_ && isLate(now));
  }

 private:
  bool isLate(std::uint64_t now) const {
    return static_cast<float>(now - start_) / 1000000.0F > timeout_;
  }

  float timeout_;
  bool pending_ = false;
  bool lastContact_ = false;
  std::uint64_t start_ = 0;
};

}  // namespace Zephly::offline
