// SPDX-License-Identifier: MIT
#include <tests/soak/vitals_check.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace soak {

namespace {

using namespace std::chrono_literals;
using Zephly::StrapTime;
using Zephly::vitals::Beat;
using Zephly::vitals::BeatClass;

constexpr StrapTime before = 6s;
constexpr StrapTime after = 2s;
constexpr StrapTime nearest = 50ms;

std::string text(StrapTime time) { return std::to_string(Zephly::seconds(time)) + " s"; }

}  // namespace

void VitalsCheck::heartBeat(StrapTime time, bool /*ectopic*/) {
  const Conditions now = conditions_();
  if (now != last_) {
    last_ = now;
    changed_ = time;
    for (Sent& sent : sent_) {
      if (time - sent.time <= after) sent.certain = false;
    }
  }
  sent_.push_back({time, now.subscribed && now.electrodesOn && time - changed_ > before});
  judge(time);
}

void VitalsCheck::second(const Zephly::vitals::Second& second) {
  ++seconds_;
  if (second.contact == false && (second.heartRate || second.breathingRate)) {
    throw Wrong("a rate without contact at " + text(second.time));
  }
}

// Beats that are old enough for all reports to have come.
void VitalsCheck::judge(StrapTime now) {
  while (!sent_.empty() && now - sent_.front().time > after) {
    const Sent sent = sent_.front();
    sent_.erase(sent_.begin());
    const auto found = std::find_if(reported_.begin(), reported_.end(), [&](const Beat& beat) {
      return std::chrono::abs(beat.time - sent.time) <= nearest;
    });
    if (sent.certain) {
      ++beats_.sent;
      if (found == reported_.end()) throw Wrong("the beat at " + text(sent.time) + " is missing");
      if (found->kind == BeatClass::artefact) {
        throw Wrong("the beat at " + text(sent.time) + " is an artefact");
      }
      ++beats_.received;
      if (found != reported_.begin()) {
        throw Wrong("there is no beat at " + text(reported_.front().time));
      }
    }
    if (found != reported_.end()) reported_.erase(reported_.begin(), found + 1);
    // What was reported while nothing is certain is not judged.
    if (!sent.certain) {
      std::erase_if(reported_, [&](const Beat& beat) { return beat.time <= sent.time + nearest; });
    }
  }
}

}  // namespace soak
