#pragma once
/// @file
/// One signal of an EDF+ file: how its values become 16-bit numbers, and which of its slots holds
/// which sample.
///
///   EdfSignal signal(ecgKind, {});
///   signal.put(from, to, 0.25F);  // fills the slots of this sample, and the gap before it
///   signal.ready();               // slots that can be written
///
/// An EDF+ file has a fixed grid of slots, the strap a clock of its own. A slot holds the sample
/// whose time (half a period to either side) it falls into; so a strap that is slow has one sample
/// twice from time to time, and one that is fast loses one. No value is changed. Slots without a
/// sample hold the digital minimum, which no sample has.

#include <timing/stream_clock.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::exporting {

/// What the header of an EDF+ file tells of a signal. Physical limits have at most 8 characters.
struct EdfKind {
  const char* label;
  const char* transducer;
  const char* dimension;  ///< physical, empty: none
  const char* prefilter;
  double physicalMinimum;  ///< what slots without a sample show
  double physicalMaximum;
  int digitalMinimum;
  int digitalMaximum;
  int perSecond;

  /// One digital step, in the physical dimension.
  double step() const {
    return (physicalMaximum - physicalMinimum) / (digitalMaximum - digitalMinimum);
  }
  /// The nearest digital number that a sample may have. What is no number is as absent.
  std::int16_t digital(float value) const;
};

class EdfSignal {
 public:
  /// Slot 0 stands at `begin`, by the clock of the session: not after 0.
  EdfSignal(const EdfKind& kind, timing::Nanoseconds begin) : kind_(kind), begin_(begin) {}

  const EdfKind& kind() const { return kind_; }

  /// `value` holds from `from` on until before `to`. Times must not go back.
  void put(timing::Nanoseconds from, timing::Nanoseconds to, float value);
  /// There is nothing before `until` other than what was put.
  void skip(timing::Nanoseconds until);

  /// The slots that are known and have not been taken, at least one second of them: then there is
  /// something to take.
  bool secondIsReady() const;
  /// Slots of one second. Valid until the next call; secondIsReady() must be true.
  const std::int16_t* takeSecond();

 private:
  void fill(timing::Nanoseconds until, std::int16_t digital);

  EdfKind kind_;
  timing::Nanoseconds begin_;
  std::int64_t filled_ = 0;  // slots, of all
  std::vector<std::int16_t> slots_;
  std::size_t taken_ = 0;  // of slots_
};

}  // namespace Zephly::exporting
