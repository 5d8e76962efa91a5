// SPDX-License-Identifier: MIT
#include <tools/strap/centrals.h>

#include <hosts/bluez/adapter_choice.h>
#include <hosts/bluez/names.h>

#include <algorithm>

namespace Zephly::peripheral {

namespace {

bool isTrue(const bluez::ObjectTree& tree, const std::string& path, const char* property) {
  const auto* value = tree.property<bool>(path, bluez::deviceInterface, property);
  return value != nullptr && *value;
}

// The address; from the path, "dev_AA_BB_...", when the property is missing.
std::string nameOf(const bluez::ObjectTree& tree, const std::string& path) {
  const auto* address = tree.property<std::string>(path, bluez::deviceInterface, "Address");
  if (address != nullptr) return *address;
  std::string name = bluez::lastPart(path);
  constexpr const char* prefix = "dev_";
  if (name.rfind(prefix, 0) == 0) name.erase(0, std::string(prefix).size());
  std::replace(name.begin(), name.end(), '_', ':');
  return name;
}

}  // namespace

void Centrals::setAdapter(const bluez::ObjectTree& tree, const std::string& adapter) {
  if (adapter == adapter_) return;
  for (const std::string& path : paths()) remove(path);
  adapter_ = adapter;
  if (adapter_.empty()) return;
  for (const std::string& path : tree.paths(adapter_ + "/", bluez::deviceInterface)) {
    if (isTrue(tree, path, "Connected") && !isTrue(tree, path, "Paired")) add(tree, path);
  }
}

void Centrals::take(const bluez::ObjectTree& tree, const bluez::ObjectChange& change,
                    bool advertising) {
  if (change.interface != bluez::deviceInterface || !isOurs(change.path)) return;
  if (!isTrue(tree, change.path, "Connected")) return remove(change.path);
  const bool connectedNow = bluez::find<bool>(change.properties, "Connected") != nullptr;
  if (connectedNow && (advertising || !isTrue(tree, change.path, "Paired"))) {
    add(tree, change.path);
  }
}

std::vector<std::string> Centrals::paths() const {
  std::vector<std::string> all;
  all.reserve(names_.size());
  for (const auto& [path, name] : names_) all.push_back(path);
  return all;
}

void Centrals::add(const bluez::ObjectTree& tree, const std::string& path) {
  const auto [entry, isNew] = names_.try_emplace(path, nameOf(tree, path));
  if (isNew) changed_(entry->second, true);
}

void Centrals::remove(const std::string& path) {
  const auto found = names_.find(path);
  if (found == names_.end()) return;
  const std::string name = found->second;
  names_.erase(found);
  changed_(name, false);
}

bool Centrals::isOurs(const std::string& path) const {
  return !adapter_.empty() && path.rfind(adapter_ + "/", 0) == 0;
}

}  // namespace Zephly::peripheral
