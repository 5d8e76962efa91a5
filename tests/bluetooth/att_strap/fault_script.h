// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The faults of the strap, and when they happen.

#include <tests/bluetooth/att_strap/att_server.h>

#include <optional>

namespace Zephly::att_strap {

/// Faults that are bound to a step of a link. Each happens once, on the first link after the
/// command that reaches the step.
class FaultScript {
 public:
  enum class Reaction { answer, ignore, drop };

  /// Answers no request, until further notice.
  void setFrozen(bool frozen) { frozen_ = frozen; }
  /// Answers no request of the next link, starting with the first of that step.
  void freezeAt(Step step);
  /// Drops the next link when that step begins.
  void dropAt(Step step);

  /// A link begins or ends.
  void linkBegins();
  void linkEnds();
  /// The client reaches a step; Step::connection is its first message.
  Reaction reactionTo(Step step);

 private:
  struct Order {
    Step step;
    bool nextLink;  ///< set during a link: applies to the next one
  };

  static bool isDue(const std::optional<Order>& order, Step step);

  bool frozen_ = false;
  bool frozenOnThisLink_ = false;
  bool linkStands_ = false;
  std::optional<Order> freeze_;
  std::optional<Order> drop_;
};

}  // namespace Zephly::att_strap
