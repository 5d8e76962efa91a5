#pragma once
/// @file
/// Which of the machine's adapters to use.

#include <platforms/bluez/object_tree.h>

#include <string>

namespace Zephly::bluez {

/// Remembers what was chosen, so that the choice stays the same while it can.
class AdapterChoice {
 public:
  /// `wanted` as Options::adapter has it: "hci0", an address, or empty.
  explicit AdapterChoice(std::string wanted) : wanted_(std::move(wanted)) {}

  /// Path of the adapter to use now; empty when there is none. It may be switched off.
  std::string choose(const ObjectTree& tree);

  const std::string& wanted() const { return wanted_; }

 private:
  std::string chooseFirst(const ObjectTree& tree) const;
  std::string chooseNamed(const ObjectTree& tree);

  std::string wanted_;
  std::string address_;  ///< of the adapter that was named by its number, once it was seen
  std::string chosen_;   ///< path of the last choice
};

/// "hci0" of "/org/bluez/hci0".
std::string lastPart(const std::string& path);

/// Whether the adapter is switched on.
bool isPowered(const ObjectTree& tree, const std::string& adapter);

}  // namespace Zephly::bluez
