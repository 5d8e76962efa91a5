// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Which of the machine's adapters to use.

#include <hosts/bluez/object_tree.h>

#include <functional>
#include <string>
#include <vector>

namespace Zephly::bluez {

/// Remembers what was chosen, so that the choice stays the same while it can.
class AdapterChoice {
 public:
  /// Whether the adapter with that path has the required role.
  using Ability = std::function<bool(const ObjectTree&, const std::string& adapter)>;

  /// `wanted` as Options::adapter has it: "hci0", an address, or empty. Adapters that are not
  /// `able` are left out.
  AdapterChoice(std::string wanted, Ability able);

  /// Path of the adapter to use now; empty when there is none. It may be switched off. An adapter
  /// that was named by its number is known by its address from then on, because it may come back
  /// under another number.
  std::string choose(const ObjectTree& tree);

  /// Whether there is an adapter that was meant, and none of those is able.
  bool onlyUnable(const ObjectTree& tree) const;

  const std::string& wanted() const { return wanted_; }

 private:
  std::vector<std::string> meant(const ObjectTree& tree) const;
  bool isMeant(const ObjectTree& tree, const std::string& adapter) const;

  std::string wanted_;
  Ability able_;
  std::string address_;  ///< of the adapter that was named by its number, once it was seen
  std::string chosen_;   ///< path of the last choice
};

/// An Ability: whether the adapter can look for devices and connect to them.
bool canBeCentral(const ObjectTree& tree, const std::string& adapter);

/// An Ability: whether the adapter can advertise and serve a profile.
bool canBePeripheral(const ObjectTree& tree, const std::string& adapter);

/// "hci0" of "/org/bluez/hci0".
std::string lastPart(const std::string& path);

/// The adapter's address; empty when it is not known.
std::string addressOf(const ObjectTree& tree, const std::string& adapter);

/// Whether the adapter is switched on.
bool isPowered(const ObjectTree& tree, const std::string& adapter);

}  // namespace Zephly::bluez
