#include <platforms/bluez/adapter_choice.h>

#include <platforms/bluez/names.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace Zephly::bluez {

namespace {

bool sameText(const std::string& left, const std::string& right) {
  return std::equal(
      left.begin(), left.end(), right.begin(), right.end(),
      [](unsigned char a, unsigned char b) { return std::toupper(a) == std::toupper(b); });
}

// Whether it can look for devices and connect to them. BlueZ before 5.51 does not tell.
bool isCentral(const ObjectTree& tree, const std::string& adapter) {
  const auto* roles = tree.property<Strings>(adapter, adapterInterface, "Roles");
  return roles == nullptr || std::any_of(roles->begin(), roles->end(), [](const std::string& role) {
           return role == "central" || role == "central-peripheral";
         });
}

// In the order of their numbers: hci2 before hci10.
std::vector<std::string> adapters(const ObjectTree& tree) {
  auto paths = tree.paths("/", adapterInterface);
  paths.erase(std::remove_if(paths.begin(), paths.end(),
                             [&](const auto& path) { return !isCentral(tree, path); }),
              paths.end());
  std::stable_sort(paths.begin(), paths.end(),
                   [](const auto& a, const auto& b) { return a.size() < b.size(); });
  return paths;
}

std::string addressOf(const ObjectTree& tree, const std::string& adapter) {
  const auto* address = tree.property<std::string>(adapter, adapterInterface, "Address");
  return address == nullptr ? std::string() : *address;
}

}  // namespace

std::string lastPart(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool isPowered(const ObjectTree& tree, const std::string& adapter) {
  const auto* powered = tree.property<bool>(adapter, adapterInterface, "Powered");
  return powered != nullptr && *powered;
}

std::string AdapterChoice::choose(const ObjectTree& tree) {
  chosen_ = wanted_.empty() ? chooseFirst(tree) : chooseNamed(tree);
  return chosen_;
}

std::string AdapterChoice::chooseFirst(const ObjectTree& tree) const {
  const auto all = adapters(tree);
  const bool present = std::find(all.begin(), all.end(), chosen_) != all.end();
  if (present && isPowered(tree, chosen_)) return chosen_;
  for (const std::string& path : all) {
    if (isPowered(tree, path)) return path;
  }
  if (present) return chosen_;
  return all.empty() ? std::string() : all.front();
}

std::string AdapterChoice::chooseNamed(const ObjectTree& tree) {
  const auto all = adapters(tree);
  for (const std::string& path : all) {
    const std::string address = addressOf(tree, path);
    if (address.empty()) continue;
    if (sameText(address, wanted_) || sameText(address, address_)) return path;
  }
  for (const std::string& path : all) {
    if (!sameText(lastPart(path), wanted_)) continue;
    // The adapter of that number is another one than before: the one that was meant is away.
    if (!address_.empty()) return {};
    address_ = addressOf(tree, path);
    return path;
  }
  return {};
}

}  // namespace Zephly::bluez
