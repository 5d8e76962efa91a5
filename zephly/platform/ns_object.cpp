#include <zephly/platform/ns_object.h>

#include <algorithm>

SelectorTable::SelectorTable(std::string_view className, std::initializer_list<Selector> selectors)
    : className_(className), selectors_(selectors) {}

const Selector* SelectorTable::find(std::string_view name) const {
  const auto found = std::find_if(selectors_.begin(), selectors_.end(),
                                  [name](const Selector& entry) { return entry.name == name; });
  return found == selectors_.end() ? nullptr : &*found;
}

bool NSObject::respondsToSelector(std::string_view name) const {
  return selectors().find(name) != nullptr;
}

std::string NSObject::description() const {
  return "<" + std::string(selectors().className()) + ">";
}

const SelectorTable& NSObject::selectors() const {
  static const SelectorTable none{"NSObject", {}};
  return none;
}

const Selector& NSObject::requireSelector(std::string_view name,
                                          const std::type_info& signature) const {
  const std::string receiver(selectors().className());
  const Selector* found = selectors().find(name);
  if (found == nullptr) {
    fatalError(receiver + " does not respond to selector \"" + std::string(name) + "\"");
  }
  if (*found->signature != signature) {
    fatalError("selector \"" + std::string(name) + "\" of " + receiver +
               " was sent with other argument or result types than it takes");
  }
  return *found;
}
