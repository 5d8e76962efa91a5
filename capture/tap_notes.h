// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The state shared by the parts of a tap: the clocks, the numbers of the objects, and the sink of
/// the records. Internal to the tap.

#include <capture/record.h>
#include <capture/tap_host.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/platform/cb_peripheral.h>

#include <cstdint>
#include <memory>
#include <unordered_map>

namespace Zephly::capture {

/// One for each tap, shared by its central and its peripherals.
class TapNotes {
 public:
  /// Installs a processor clock that returns the time of the latest record, unless the options
  /// leave the clock alone. Records are stamped with the clock before.
  explicit TapNotes(TapOptions options);
  TapNotes(const TapNotes&) = delete;
  TapNotes& operator=(const TapNotes&) = delete;

  /// Restores the previous clock. To be called once, before this object is destroyed.
  void restoreProcessorClock() {
    if (options_.freezeProcessorClock) setProcessorClock(processor_);
  }

  /// Stamps the report, freezes the processor clock at that time, and passes the record on.
  void note(Report report);
  /// Stops passing records on.
  void close() { open_ = false; }

  /// A new number for a peripheral.
  ObjectId newId() { return ++lastId_; }
  /// The number of a service or a characteristic: the same one for as long as the object lives.
  ObjectId idOf(const std::shared_ptr<NSObject>& object);

 private:
  struct Known {
    std::weak_ptr<NSObject> object;
    ObjectId id = 0;
  };

  TapOptions options_;
  ProcessorClock processor_;
  std::uint64_t frozenTime_ = 0;  // microseconds: of the latest record
  bool open_ = true;
  ObjectId lastId_ = 0;
  std::unordered_map<const NSObject*, Known> known_;
};

/// The text of an error, if there is one.
ErrorText textOf(const std::shared_ptr<const NSError>& error);

}  // namespace Zephly::capture
