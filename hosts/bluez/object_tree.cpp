// SPDX-License-Identifier: MIT
#include <hosts/bluez/object_tree.h>

#include <utility>

namespace Zephly::bluez {

namespace {

bool beginsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Makes `properties` what `all` says; returns those that are new, other or gone.
Dictionary replaceProperties(Dictionary& properties, const Dictionary& all) {
  Dictionary changed;
  for (const auto& [name, value] : all) {
    const auto known = properties.find(name);
    if (known == properties.end() || !(known->second == value)) changed[name] = value;
  }
  for (const auto& [name, value] : properties) {
    if (all.count(name) == 0) changed[name] = Value();
  }
  properties = all;
  return changed;
}

}  // namespace

const Dictionary* ObjectTree::properties(const std::string& path,
                                         const std::string& interface) const {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return nullptr;
  const auto found = object->second.find(interface);
  return found == object->second.end() ? nullptr : &found->second;
}

std::vector<std::string> ObjectTree::paths(const std::string& prefix,
                                           const std::string& interface) const {
  std::vector<std::string> found;
  for (auto object = objects_.lower_bound(prefix);
       object != objects_.end() && beginsWith(object->first, prefix); ++object) {
    if (object->second.count(interface) != 0) found.push_back(object->first);
  }
  return found;
}

// The reply to GetManagedObjects: becomes the tree. Removals come first in the result, so that a
// listener never sees an object of the old list beside one of the new list.
std::optional<ObjectChanges> ObjectTree::replace(const Arguments& reply) {
  const auto* objects = at<Dictionary>(reply, 0);
  if (objects == nullptr) return std::nullopt;
  ObjectChanges changes;
  const auto before = objects_;  // a copy, because drop() erases
  for (const auto& [path, interfaces] : before) {
    const auto* now = find<Dictionary>(*objects, path);
    for (const auto& [interface, properties] : interfaces) {
      if (now == nullptr || find<Dictionary>(*now, interface) == nullptr) {
        drop(path, interface, changes);
      }
    }
  }
  for (const auto& [path, value] : *objects) {
    const auto* interfaces = as<Dictionary>(value);
    if (interfaces == nullptr) continue;
    for (const auto& [interface, properties] : *interfaces) {
      if (const auto* all = as<Dictionary>(properties)) put(path, interface, *all, changes);
    }
  }
  return changes;
}

// The signals InterfacesAdded, InterfacesRemoved and PropertiesChanged. Their arguments come from
// outside: one of an unexpected type changes nothing.

ObjectChanges ObjectTree::add(const Arguments& arguments) {
  ObjectChanges changes;
  const auto* path = at<std::string>(arguments, 0);
  const auto* interfaces = at<Dictionary>(arguments, 1);
  if (path == nullptr || interfaces == nullptr) return changes;
  for (const auto& [interface, properties] : *interfaces) {
    if (const auto* all = as<Dictionary>(properties)) put(*path, interface, *all, changes);
  }
  return changes;
}

ObjectChanges ObjectTree::remove(const Arguments& arguments) {
  ObjectChanges changes;
  const auto* path = at<std::string>(arguments, 0);
  const auto* interfaces = at<Strings>(arguments, 1);
  if (path == nullptr || interfaces == nullptr) return changes;
  for (const std::string& interface : *interfaces) drop(*path, interface, changes);
  return changes;
}

std::optional<ObjectChanges> ObjectTree::change(const std::string& path,
                                                const Arguments& arguments) {
  const auto* interface = at<std::string>(arguments, 0);
  const auto* values = at<Dictionary>(arguments, 1);
  if (interface == nullptr || values == nullptr) return ObjectChanges();
  // Values of an interface that is not in the tree: the caller has to read the object anew.
  const Dictionary* known = properties(path, *interface);
  if (known == nullptr) return std::nullopt;
  Dictionary all = *known;
  for (const auto& [name, value] : *values) all[name] = value;
  // These have changed, but the signal does not contain their values.
  if (const auto* invalidated = at<Strings>(arguments, 2)) {
    for (const std::string& name : *invalidated) all.erase(name);
  }
  return refresh(path, *interface, all);
}

// Does not add: the reply may arrive after the object was removed.
ObjectChanges ObjectTree::refresh(const std::string& path, const std::string& interface,
                                  const Dictionary& all) {
  ObjectChanges changes;
  if (properties(path, interface) != nullptr) put(path, interface, all, changes);
  return changes;
}

ObjectChanges ObjectTree::clear() {
  ObjectChanges changes;
  const auto before = std::exchange(objects_, {});
  for (const auto& [path, interfaces] : before) {
    for (const auto& [interface, properties] : interfaces) {
      changes.push_back({ObjectChange::Kind::removed, path, interface, properties});
    }
  }
  return changes;
}

// A repeated value is not a change: bluetoothd sends some properties again without a change.
void ObjectTree::put(const std::string& path, const std::string& interface, const Dictionary& all,
                     ObjectChanges& changes) {
  Interfaces& interfaces = objects_[path];
  const auto known = interfaces.find(interface);
  if (known == interfaces.end()) {
    interfaces[interface] = all;
    changes.push_back({ObjectChange::Kind::added, path, interface, all});
    return;
  }
  Dictionary changed = replaceProperties(known->second, all);
  if (!changed.empty()) {
    changes.push_back({ObjectChange::Kind::changed, path, interface, std::move(changed)});
  }
}

void ObjectTree::drop(const std::string& path, const std::string& interface,
                      ObjectChanges& changes) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return;
  const auto known = object->second.find(interface);
  if (known == object->second.end()) return;
  changes.push_back({ObjectChange::Kind::removed, path, interface, std::move(known->second)});
  object->second.erase(known);
  if (object->second.empty()) objects_.erase(object);
}

}  // namespace Zephly::bluez
