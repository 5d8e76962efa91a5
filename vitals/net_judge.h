// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Decides by the net, and by the rules where the net has nothing to compare with.

#include <vitals/beat_judge.h>
#include <vitals/beat_net.h>
#include <vitals/beat_rules.h>

namespace Zephly::vitals {

class NetJudge : public BeatJudge {
 public:
  /// `net` must outlive it.
  explicit NetJudge(const BeatNet& net) : net_(net) {}

  double certainty(const Candidate& candidate, const Surroundings& around,
                   const BeatHistory& history) override;

  /// Whether the net decides: not before there are beats, nor about what is too weak or too early.
  static bool decides(const Candidate& candidate, const BeatHistory& history);

 private:
  const BeatNet& net_;
  BeatRules rules_;
};

}  // namespace Zephly::vitals
