#pragma once
/// @file
/// Who is connected to the strap, as far as bluetoothd tells.

#include <hosts/bluez/object_tree.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Zephly::peripheral {

/// bluetoothd does not say which side of a link has asked for it. Taken for a central is what
/// connects while the strap advertises, and what is connected already and not paired with this
/// machine: a keyboard that was here before is left alone.
class Centrals {
 public:
  /// Names the device for people, and tells whether it has come or gone.
  using Observer = std::function<void(const std::string& name, bool connected)>;

  explicit Centrals(Observer changed) : changed_(std::move(changed)) {}

  /// Only devices of this adapter count; another one than before has none yet.
  void setAdapter(const bluez::ObjectTree& tree, const std::string& adapter);
  void take(const bluez::ObjectTree& tree, const bluez::ObjectChange& change, bool advertising);

  /// Paths of their objects.
  std::vector<std::string> paths() const;
  bool contains(const std::string& path) const { return names_.count(path) != 0; }

 private:
  void come(const bluez::ObjectTree& tree, const std::string& path);
  void go(const std::string& path);
  bool isOurs(const std::string& path) const;

  Observer changed_;
  std::string adapter_;
  std::map<std::string, std::string> names_;  ///< by path
};

}  // namespace Zephly::peripheral
