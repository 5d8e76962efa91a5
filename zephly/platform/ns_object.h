// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The root class of objects that can be called by message name as well as by C++ call.
///
///   class Lamp : public NSObject {
///    public:
///     void setLevel(float level);
///    protected:
///     const Zephly::SelectorTable& selectors() const override {
///       static const Zephly::SelectorTable table{
///           "Lamp", {Zephly::selector<&Lamp::setLevel>("setLevel:")}};
///       return table;
///     }
///   };
///   lamp.performSelector<void>("setLevel:", 0.5f);
///
/// A message is sent with the exact argument types of the operation (a float is not a double; a
/// reference parameter is sent by value). An unknown selector, a wrong result type or wrong
/// argument types are a fatal error that names the class and the selector. Objects are reference
/// counted through std::shared_ptr; nothing here is thread-safe.

#include <zephly/platform/export.h>
#include <zephly/platform/fatal_error.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

class NSObject;

namespace Zephly {

/// One message of a class: its name, its signature (as the type of a function that takes every
/// argument by value) and the function that performs it.
struct Selector {
  std::string_view name;
  const std::type_info* signature;
  void (*perform)();  ///< really Result (*)(NSObject&, Arguments...), see `signature`
};

/// All messages of one class, in the order in which the class declares them. A subclass that
/// also responds to its base class's messages lists them again.
class ZEPHLY_EXPORT SelectorTable {
 public:
  SelectorTable(std::string_view className, std::initializer_list<Selector> selectors);

  std::string_view className() const { return className_; }
  const std::vector<Selector>& all() const { return selectors_; }
  /// Null when the class does not respond to `name`.
  const Selector* find(std::string_view name) const;

 private:
  std::string_view className_;
  std::vector<Selector> selectors_;
};

}  // namespace Zephly

/// Reference counted; responds to the selectors of its class.
class ZEPHLY_EXPORT NSObject : public std::enable_shared_from_this<NSObject> {
 public:
  virtual ~NSObject() = default;

  bool respondsToSelector(std::string_view name) const;

  /// The object's text in a diagnostic line; by default the class name in angle brackets.
  virtual std::string description() const;

  template <class Result = void, class... Arguments>
  Result performSelector(std::string_view name, Arguments... arguments) {
    const auto perform = reinterpret_cast<Result (*)(NSObject&, Arguments...)>(
        requireSelector(name, typeid(Result(Arguments...))).perform);
    return perform(*this, std::move(arguments)...);
  }

 protected:
  NSObject() = default;
  NSObject(const NSObject&) = default;
  NSObject& operator=(const NSObject&) = default;

  /// The class's messages; the base class has none.
  virtual const Zephly::SelectorTable& selectors() const;

 private:
  const Zephly::Selector& requireSelector(std::string_view name,
                                          const std::type_info& signature) const;
};

namespace Zephly {

/// @cond
namespace selector_detail {

template <auto method, class Class, class Result, class... Arguments>
Selector make(std::string_view name) {
  using Perform = Result (*)(NSObject&, std::decay_t<Arguments>...);
  const Perform perform = [](NSObject& self, std::decay_t<Arguments>... arguments) -> Result {
    return std::invoke(method, static_cast<Class&>(self), std::move(arguments)...);
  };
  return {name, &typeid(Result(std::decay_t<Arguments>...)), reinterpret_cast<void (*)()>(perform)};
}

template <auto method>
struct Maker;

template <class Class, class Result, class... Arguments, Result (Class::*method)(Arguments...)>
struct Maker<method> {
  static Selector named(std::string_view name) {
    return make<method, Class, std::decay_t<Result>, Arguments...>(name);
  }
};

template <class Class, class Result, class... Arguments,
          Result (Class::*method)(Arguments...) const>
struct Maker<method> {
  static Selector named(std::string_view name) {
    return make<method, const Class, std::decay_t<Result>, Arguments...>(name);
  }
};

}  // namespace selector_detail
/// @endcond

/// A table entry for the member function `method` under the message name `name` (which must be a
/// string literal: the table keeps no copy).
template <auto method>
Selector selector(std::string_view name) {
  return selector_detail::Maker<method>::named(name);
}

}  // namespace Zephly
