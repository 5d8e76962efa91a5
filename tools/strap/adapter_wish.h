#pragma once
/// @file
/// Which of the machine's adapters can be the strap.

#include <platforms/bluez/object_tree.h>

#include <string>

namespace Zephly::peripheral {

/// Remembers what was chosen, so that the choice stays the same while it can.
class AdapterWish {
 public:
  /// "hci0", an address, or empty for any.
  explicit AdapterWish(std::string wanted) : wanted_(std::move(wanted)) {}

  /// Path of the adapter to use now, which has all that a peripheral needs but may be switched off;
  /// empty when there is none. An adapter that was named by its number is known by its address from
  /// then on, because it may come back under another number.
  std::string choose(const bluez::ObjectTree& tree);

  /// Whether there is an adapter that was meant but that cannot be a peripheral.
  bool onlyUnable(const bluez::ObjectTree& tree) const;

  const std::string& wanted() const { return wanted_; }

 private:
  bool isMeant(const bluez::ObjectTree& tree, const std::string& path) const;

  std::string wanted_;
  std::string address_;  ///< of the adapter that was named by its number, once it was seen
  std::string chosen_;   ///< path of the last choice
};

/// The adapter's address; empty when it is not known.
std::string addressOf(const bluez::ObjectTree& tree, const std::string& adapter);

}  // namespace Zephly::peripheral
