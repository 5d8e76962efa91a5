// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A processor clock that moves only when a test moves it, and counts how often it is read.

#include <zephly/dsp/processor_clock.h>

#include <cstdint>

class FakeProcessorClock {
 public:
  FakeProcessorClock() {
    now = 0;
    reads = 0;
    before_ = Zephly::setProcessorClock([] {
      ++reads;
      return now;
    });
  }
  ~FakeProcessorClock() { Zephly::setProcessorClock(before_); }
  FakeProcessorClock(const FakeProcessorClock&) = delete;
  FakeProcessorClock& operator=(const FakeProcessorClock&) = delete;

  inline static std::uint64_t now = 0;  // microseconds
  inline static int reads = 0;

 private:
  Zephly::ProcessorClock before_;
};
