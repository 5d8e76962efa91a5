#include <tools/strap/adapter_wish.h>

#include <platforms/bluez/adapter_choice.h>
#include <platforms/bluez/names.h>
#include <tools/strap/names.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace Zephly::peripheral {

namespace {

bool sameText(const std::string& left, const std::string& right) {
  return std::equal(
      left.begin(), left.end(), right.begin(), right.end(),
      [](unsigned char a, unsigned char b) { return std::toupper(a) == std::toupper(b); });
}

bool isAble(const bluez::ObjectTree& tree, const std::string& path) {
  return tree.properties(path, gattManagerInterface) != nullptr &&
         tree.properties(path, advertisingManagerInterface) != nullptr;
}

}  // namespace

std::string addressOf(const bluez::ObjectTree& tree, const std::string& adapter) {
  const auto* address = tree.property<std::string>(adapter, bluez::adapterInterface, "Address");
  return address == nullptr ? std::string() : *address;
}

std::string AdapterWish::choose(const bluez::ObjectTree& tree) {
  auto candidates = tree.paths("/", bluez::adapterInterface);
  candidates.erase(
      std::remove_if(candidates.begin(), candidates.end(),
                     [&](const auto& path) { return !isMeant(tree, path) || !isAble(tree, path); }),
      candidates.end());
  if (candidates.empty()) return chosen_ = {};
  // The one of before, then by number (hci2 before hci10); but one that is switched on before all.
  std::stable_sort(candidates.begin(), candidates.end(), [&](const auto& a, const auto& b) {
    if ((a == chosen_) != (b == chosen_)) return a == chosen_;
    return a.size() < b.size();
  });
  const auto powered = std::find_if(candidates.begin(), candidates.end(),
                                    [&](const auto& path) { return bluez::isPowered(tree, path); });
  chosen_ = powered == candidates.end() ? candidates.front() : *powered;
  if (!wanted_.empty() && address_.empty()) address_ = addressOf(tree, chosen_);
  return chosen_;
}

bool AdapterWish::onlyUnable(const bluez::ObjectTree& tree) const {
  const auto all = tree.paths("/", bluez::adapterInterface);
  return std::any_of(
             all.begin(), all.end(),
             [&](const auto& path) { return isMeant(tree, path) && !isAble(tree, path); }) &&
         std::none_of(all.begin(), all.end(),
                      [&](const auto& path) { return isMeant(tree, path) && isAble(tree, path); });
}

bool AdapterWish::isMeant(const bluez::ObjectTree& tree, const std::string& path) const {
  if (wanted_.empty()) return true;
  const std::string address = addressOf(tree, path);
  if (!address_.empty()) return sameText(address, address_);
  return sameText(address, wanted_) || sameText(bluez::lastPart(path), wanted_);
}

}  // namespace Zephly::peripheral
