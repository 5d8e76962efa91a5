// SPDX-License-Identifier: MIT
#include <hosts/bluez/adapter_choice.h>

#include <hosts/bluez/names.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace Zephly::bluez {

namespace {

bool sameText(const std::string& left, const std::string& right) {
  return std::equal(
      left.begin(), left.end(), right.begin(), right.end(),
      [](unsigned char a, unsigned char b) { return std::toupper(a) == std::toupper(b); });
}

}  // namespace

// BlueZ before 5.51 has no property Roles. The adapter is then assumed to have the role.
bool canBeCentral(const ObjectTree& tree, const std::string& adapter) {
  const auto* roles = tree.property<Strings>(adapter, adapterInterface, "Roles");
  return roles == nullptr || std::any_of(roles->begin(), roles->end(), [](const std::string& role) {
           return role == "central" || role == "central-peripheral";
         });
}

bool canBePeripheral(const ObjectTree& tree, const std::string& adapter) {
  return tree.properties(adapter, gattManagerInterface) != nullptr &&
         tree.properties(adapter, advertisingManagerInterface) != nullptr;
}

std::string lastPart(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string addressOf(const ObjectTree& tree, const std::string& adapter) {
  const auto* address = tree.property<std::string>(adapter, adapterInterface, "Address");
  return address == nullptr ? std::string() : *address;
}

bool isPowered(const ObjectTree& tree, const std::string& adapter) {
  const auto* powered = tree.property<bool>(adapter, adapterInterface, "Powered");
  return powered != nullptr && *powered;
}

AdapterChoice::AdapterChoice(std::string wanted, Ability able)
    : wanted_(std::move(wanted)), able_(std::move(able)) {}

std::string AdapterChoice::choose(const ObjectTree& tree) {
  auto candidates = meant(tree);
  candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                  [&](const auto& path) { return !able_(tree, path); }),
                   candidates.end());
  if (candidates.empty()) return chosen_ = {};
  // A powered adapter first; among those the previous choice, then by number (hci2 before hci10).
  std::stable_sort(candidates.begin(), candidates.end(), [&](const auto& a, const auto& b) {
    if ((a == chosen_) != (b == chosen_)) return a == chosen_;
    return a.size() < b.size();
  });
  const auto powered = std::find_if(candidates.begin(), candidates.end(),
                                    [&](const auto& path) { return isPowered(tree, path); });
  chosen_ = powered == candidates.end() ? candidates.front() : *powered;
  if (!wanted_.empty() && address_.empty()) address_ = addressOf(tree, chosen_);
  return chosen_;
}

bool AdapterChoice::onlyUnable(const ObjectTree& tree) const {
  const auto all = meant(tree);
  return !all.empty() &&
         std::none_of(all.begin(), all.end(), [&](const auto& path) { return able_(tree, path); });
}

std::vector<std::string> AdapterChoice::meant(const ObjectTree& tree) const {
  auto paths = tree.paths("/", adapterInterface);
  paths.erase(std::remove_if(paths.begin(), paths.end(),
                             [&](const auto& path) { return !isMeant(tree, path); }),
              paths.end());
  return paths;
}

bool AdapterChoice::isMeant(const ObjectTree& tree, const std::string& adapter) const {
  if (wanted_.empty()) return true;
  const std::string address = addressOf(tree, adapter);
  if (!address_.empty()) return sameText(address, address_);
  return sameText(address, wanted_) || sameText(lastPart(adapter), wanted_);
}

}  // namespace Zephly::bluez
