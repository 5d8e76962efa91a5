#pragma once
/// @file
/// What the strap does wrong, and when.

#include <tests/bluetooth/att_strap/att_server.h>

#include <optional>

namespace Zephly::att_strap {

/// Faults that wait for a link and a step on it. Each happens once, on the first link after the
/// order that comes so far.
class FaultScript {
 public:
  enum class Reaction { answer, ignore, drop };

  /// Answers no request, until further notice.
  void setFrozen(bool frozen) { frozen_ = frozen; }
  /// Answers no request of the next link from the first one of that step on.
  void freezeAt(Step step);
  /// Drops the next link when that step begins.
  void dropAt(Step step);

  /// A link begins or ends.
  void linkBegins();
  void linkEnds();
  /// The client comes to a step; Step::connection is the first thing that it says.
  Reaction reactionTo(Step step);

 private:
  struct Order {
    Step step;
    bool nextLink;  ///< given while a link stood: not for that one
  };

  static bool isDue(const std::optional<Order>& order, Step step);

  bool frozen_ = false;
  bool frozenOnThisLink_ = false;
  bool linkStands_ = false;
  std::optional<Order> freeze_;
  std::optional<Order> drop_;
};

}  // namespace Zephly::att_strap
