// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The centrals connected to the strap, as far as bluetoothd reports them.

#include <hosts/bluez/object_tree.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Zephly::peripheral {

/// bluetoothd does not report which side has initiated a link. A device counts as a central when it
/// connects while the strap advertises, or is connected and not paired with this machine: so a
/// keyboard of this machine is not disconnected.
class Centrals {
 public:
  /// The device's name for people, and whether it has connected or disconnected.
  using Observer = std::function<void(const std::string& name, bool connected)>;

  explicit Centrals(Observer changed) : changed_(std::move(changed)) {}

  /// Only devices of this adapter count. Reports the devices of the previous one as disconnected.
  void setAdapter(const bluez::ObjectTree& tree, const std::string& adapter);
  void take(const bluez::ObjectTree& tree, const bluez::ObjectChange& change, bool advertising);

  /// Paths of their objects.
  std::vector<std::string> paths() const;
  bool contains(const std::string& path) const { return names_.count(path) != 0; }

 private:
  void add(const bluez::ObjectTree& tree, const std::string& path);
  void remove(const std::string& path);
  bool isOurs(const std::string& path) const;

  Observer changed_;
  std::string adapter_;
  std::map<std::string, std::string> names_;  ///< by path
};

}  // namespace Zephly::peripheral
