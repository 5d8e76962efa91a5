// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The objects of bluetoothd as far as they are known here: paths, their interfaces and properties.
///
/// Kept up to date by the signals of the object manager and replaced as a whole by what
/// GetManagedObjects returns. Each operation returns what really changed by it, to be acted on when
/// the tree is complete: a signal that comes twice, or that repeats what the tree already knows,
/// changes nothing. Messages of the wrong shape are ignored.

#include <hosts/bluez/value.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::bluez {

/// One interface of one object that came, went or changed.
struct ObjectChange {
  enum class Kind { added, removed, changed };

  Kind kind;
  std::string path;
  std::string interface;
  /// Of the interface: all of them when it was added or removed, else the new values of those that
  /// have changed; a property that has gone has no shape.
  Dictionary properties;
};

using ObjectChanges = std::vector<ObjectChange>;

/// All objects by path.
class ObjectTree {
 public:
  /// Null when there is no such object or interface.
  const Dictionary* properties(const std::string& path, const std::string& interface) const;
  /// Null when it is absent or has another shape.
  template <class T>
  const T* property(const std::string& path, const std::string& interface,
                    const std::string& name) const {
    const Dictionary* all = properties(path, interface);
    return all == nullptr ? nullptr : find<T>(*all, name);
  }
  /// The objects whose path begins with `prefix` and that have the interface, by path.
  std::vector<std::string> paths(const std::string& prefix, const std::string& interface) const;

  /// What GetManagedObjects returned. Empty when it is not a tree of objects; then nothing changes.
  std::optional<ObjectChanges> replace(const Arguments& reply);
  /// Arguments of InterfacesAdded.
  ObjectChanges add(const Arguments& arguments);
  /// Arguments of InterfacesRemoved.
  ObjectChanges remove(const Arguments& arguments);
  /// Arguments of PropertiesChanged. Empty when the object or its interface is not known.
  std::optional<ObjectChanges> change(const std::string& path, const Arguments& arguments);
  /// All properties of an interface that is known, as Properties.GetAll returns them.
  ObjectChanges refresh(const std::string& path, const std::string& interface,
                        const Dictionary& all);
  /// Everything goes.
  ObjectChanges clear();

 private:
  using Interfaces = std::map<std::string, Dictionary>;

  void put(const std::string& path, const std::string& interface, const Dictionary& all,
           ObjectChanges& changes);
  void drop(const std::string& path, const std::string& interface, ObjectChanges& changes);

  std::map<std::string, Interfaces> objects_;
};

}  // namespace Zephly::bluez
