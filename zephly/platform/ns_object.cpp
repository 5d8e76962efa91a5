// SPDX-License-Identifier: MIT
#include <zephly/platform/ns_object.h>

#include <algorithm>

namespace Zephly {

SelectorTable::SelectorTable(std::string_view className, std::initializer_list<Selector> selectors)
    : className_(className), selectors_(selectors) {}

const Selector* SelectorTable::find(std::string_view name) const {
  const auto found = std::find_if(selectors_.begin(), selectors_.end(),
                                  [name](const Selector& entry) { return entry.name == name; });
  return found == selectors_.end() ? nullptr : &*found;
}

}  // namespace Zephly

bool NSObject::respondsToSelector(std::string_view name) const {
  return selectors().find(name) != nullptr;
}

std::string NSObject::description() const {
  return "<" + std::string(selectors().className()) + ">";
}

const Zephly::SelectorTable& NSObject::selectors() const {
  static const Zephly::SelectorTable none{"NSObject", {}};
  return none;
}

const Zephly::Selector& NSObject::requireSelector(std::string_view name,
                                                  const std::type_info& signature) const {
  const std::string receiver(selectors().className());
  const Zephly::Selector* found = selectors().find(name);
  if (found == nullptr) {
    Zephly::fatalError(receiver + " does not respond to selector \"" + std::string(name) + "\"");
  }
  if (*found->signature != signature) {
    Zephly::fatalError("selector \"" + std::string(name) + "\" of " + receiver +
                       " was sent with other argument or result types than it takes");
  }
  return *found;
}
