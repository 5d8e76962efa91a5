// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Compares the beats that a session's vitals report with those of the simulated wearer.
///
///   VitalsCheck check;                                   // observer of the strap
///   check.watch([&] { return VitalsCheck::Conditions{...}; });
///   SessionVitals vitals(check, now);                    // reports to it
///   ...
///   check.beats();    // as many reported as sent
///
/// A beat counts when link and contact have held from 6 s before it, in which detection begins
/// anew, until 2 s after it. Each of these must be reported once, within 50 ms, and not as an
/// artefact; no other beat may be reported meanwhile. The first one that differs is a Wrong.

#include <simulator/wearer.h>
#include <tests/soak/ledger.h>
#include <vitals/vitals.h>
#include <zephly/protocol/strap_time.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace soak {

class VitalsCheck final : public simulator::WearerObserver, public Zephly::vitals::Receiver {
 public:
  /// What must not change around a beat.
  struct Conditions {
    std::uint64_t connections = 0;
    bool subscribed = false;
    bool electrodesOn = false;

    friend bool operator==(const Conditions&, const Conditions&) = default;
  };

  void watch(std::function<Conditions()> conditions) { conditions_ = std::move(conditions); }

  void heartBeat(Zephly::StrapTime time, bool ectopic) override;
  void endOfInspiration(Zephly::StrapTime /*time*/) override {}

  void beat(const Zephly::vitals::Beat& beat) override { reported_.push_back(beat); }
  void breath(const Zephly::vitals::Breath& /*breath*/) override { ++breaths_; }
  void second(const Zephly::vitals::Second& second) override;

  /// Of the wearer, while link and contact held, and of these the reported ones.
  const Account& beats() const { return beats_; }
  std::uint64_t breaths() const { return breaths_; }
  std::uint64_t seconds() const { return seconds_; }

 private:
  struct Sent {
    Zephly::StrapTime time{};
    bool certain = false;  // so far
  };

  void judge(Zephly::StrapTime now);

  std::function<Conditions()> conditions_;
  Conditions last_;
  Zephly::StrapTime changed_{};  // when the conditions changed
  std::vector<Sent> sent_;       // not judged yet
  std::vector<Zephly::vitals::Beat> reported_;
  Account beats_;
  std::uint64_t breaths_ = 0;
  std::uint64_t seconds_ = 0;
};

}  // namespace soak
