// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/fault_script.h>

namespace Zephly::att_strap {

void FaultScript::freezeAt(Step step) { freeze_ = Order{step, linkStands_}; }

void FaultScript::dropAt(Step step) { drop_ = Order{step, linkStands_}; }

void FaultScript::linkBegins() {
  linkStands_ = true;
  if (freeze_) freeze_->nextLink = false;
  if (drop_) drop_->nextLink = false;
}

void FaultScript::linkEnds() {
  linkStands_ = false;
  frozenOnThisLink_ = false;
}

bool FaultScript::isDue(const std::optional<Order>& order, Step step) {
  return order && !order->nextLink && order->step == step;
}

FaultScript::Reaction FaultScript::reactionTo(Step step) {
  if (isDue(drop_, step)) {
    drop_.reset();
    return Reaction::drop;
  }
  if (isDue(freeze_, step)) {
    freeze_.reset();
    frozenOnThisLink_ = true;
  }
  return frozen_ || frozenOnThisLink_ ? Reaction::ignore : Reaction::answer;
}

}  // namespace Zephly::att_strap
