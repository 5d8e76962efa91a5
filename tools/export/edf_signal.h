// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One signal of an EDF+ file: converts its values to 16-bit numbers and assigns samples to slots.
///
///   EdfSignal signal(ecgKind, {}, records);
///   signal.put(from, to, 0.25F);                     // the slots of this sample, and the gap
///   before while (signal.secondIsReady()) write(signal.takeSecond());
///
/// An EDF+ file has a fixed grid of slots, but the strap's clock drifts. A slot holds the sample
/// whose time (half a period to either side) contains the slot's time; with a slow strap one sample
/// is repeated from time to time, with a fast one a sample is dropped. No value is changed. Slots
/// without a sample hold physical zero. Only seconds that become data records have slots.

#include <timing/stream_clock.h>
#include <tools/export/edf_records.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::exporting {

/// The header fields of a signal. Physical limits have at most 8 characters, and zero is between
/// them.
struct EdfKind {
  const char* label;
  const char* transducer;
  const char* dimension;  ///< physical, empty: none
  double physicalMinimum;
  double physicalMaximum;
  int digitalMinimum;
  int digitalMaximum;
  int perSecond;

  /// One digital step, in the physical dimension.
  double step() const {
    return (physicalMaximum - physicalMinimum) / (digitalMaximum - digitalMinimum);
  }
  /// The nearest digital number. NaN counts as absent.
  std::int16_t digital(float value) const;
  /// Of a slot without a sample: the nearest to physical zero.
  std::int16_t absent() const { return digital(0); }
};

class EdfSignal {
 public:
  /// `begin`: the time of slot 0 on the session's clock, not after 0. `records` must outlive it.
  EdfSignal(const EdfKind& kind, timing::Nanoseconds begin, const EdfRecords& records)
      : kind_(kind), begin_(begin), records_(&records) {}

  const EdfKind& kind() const { return kind_; }

  /// `value` holds from `from` until just before `to`. Times must not decrease.
  void put(timing::Nanoseconds from, timing::Nanoseconds to, float value);
  /// No sample follows for the time before `until`.
  void skip(timing::Nanoseconds until);

  /// Whether one second of slots is complete and has not been taken.
  bool secondIsReady() const;
  /// Slots of one second. Valid until the next call; secondIsReady() must be true.
  const std::int16_t* takeSecond();

 private:
  void fill(timing::Nanoseconds until, std::int16_t digital);

  EdfKind kind_;
  timing::Nanoseconds begin_;
  const EdfRecords* records_;
  std::size_t stretch_ = 0;  // of records_, that has slot next_
  std::int64_t next_ = 0;    // slot to fill, from the beginning of the file
  std::vector<std::int16_t> slots_;
  std::size_t taken_ = 0;  // of slots_
};

}  // namespace Zephly::exporting
