#pragma once
/// @file
/// Where the values come from: the modelled person in real time, and, for measuring, any number of
/// values a second.

#include <hosts/main_queue/main_queue.h>
#include <simulator/strap.h>
#include <tests/bluetooth/att_strap/bytes.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace Zephly::att_strap {

/// Hands every value out at its time, whether or not anybody listens.
class Streamer {
 public:
  /// False when the value could not be taken; it is then lost.
  using Take = std::function<bool(simulator::Stream stream, const Bytes& value)>;

  Streamer(main_queue::MainQueue& queue, std::uint64_t seed, Take take);

  /// Whether the person's values are handed out. Their time goes on meanwhile.
  void setOn(bool on) { on_ = on; }

  /// `count` values of the ECG, `perSecond` of them a second (0: as fast as they are taken), of
  /// `size` bytes: their number from 0 on in four bytes, the microseconds of the monotonic clock in
  /// eight, and as many 0xA5 as it takes. One that is not taken is offered again.
  void measure(unsigned perSecond, std::size_t size, unsigned count);
  static constexpr std::size_t shortestMeasured = 12;

 private:
  using Clock = std::chrono::steady_clock;

  void tick();
  void plan();
  void measureTick();
  Bytes measuredValue() const;

  main_queue::MainQueue& queue_;
  simulator::Strap strap_;
  Take take_;
  bool on_ = true;
  Clock::time_point switchedOn_ = Clock::now();
  main_queue::Timer timer_;

  struct Measurement {
    unsigned perSecond = 0;
    std::size_t size = 0;
    unsigned count = 0;
    unsigned done = 0;
    Clock::time_point begin;
  } measurement_;
  main_queue::Timer measureTimer_;
};

}  // namespace Zephly::att_strap
