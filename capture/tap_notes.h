#pragma once
/// @file
/// What the parts of a tap share: the clocks, the numbers of the objects, and who gets the records.
/// Internal to the tap.

#include <capture/record.h>
#include <capture/tap_host.h>
#include <zephly/platform/cb_peripheral.h>

#include <cstdint>
#include <memory>
#include <unordered_map>

namespace Zephly::capture {

class TapNotes {
 public:
  /// `processor` is the clock that the records are stamped with.
  TapNotes(TapOptions options, ProcessorClock processor);

  /// Stamps it, lets the processor clock stand at that time, and passes it on.
  void note(decltype(Record::what) what);
  /// Nothing is passed on any more.
  void close() { open_ = false; }

  /// A new number for a peripheral.
  ObjectId newId() { return ++lastId_; }
  /// The number of a service or a characteristic: the same one for as long as the object lives.
  ObjectId idOf(const std::shared_ptr<NSObject>& object);

  /// What the kit's processor clock answers while a tap is there.
  static std::uint64_t frozenClock() { return frozen; }

 private:
  struct Known {
    std::weak_ptr<NSObject> object;
    ObjectId id = 0;
  };

  // A processor clock is a plain function: it cannot belong to one object.
  static std::uint64_t frozen;

  TapOptions options_;
  ProcessorClock processor_;
  bool open_ = true;
  ObjectId lastId_ = 0;
  std::unordered_map<const NSObject*, Known> known_;
};

/// The text of an error, if there is one.
ErrorText textOf(const std::shared_ptr<const NSError>& error);

}  // namespace Zephly::capture
