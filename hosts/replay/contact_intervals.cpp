// SPDX-License-Identifier: MIT
#include <hosts/replay/contact_intervals.h>

#include <chrono>

namespace Zephly::replay {

std::vector<ContactInterval> contactIntervals(const std::vector<Annotation>& annotations,
                                              timing::Nanoseconds end) {
  using Kind = Annotation::Kind;
  std::vector<ContactInterval> intervals;
  // The kit reports changes only: with a new link the last report still holds.
  std::optional<bool> reported;
  std::optional<bool> contact;  // empty: not known, or no link
  timing::Nanoseconds since{};
  const auto change = [&](timing::Nanoseconds time, std::optional<bool> now) {
    if (contact && time > since) {
      intervals.push_back({.from = since, .to = time, .contact = *contact});
    }
    contact = now;
    since = time;
  };
  for (const Annotation& annotation : annotations) {
    if (annotation.kind == Kind::linkLost) change(annotation.time, std::nullopt);
    if (annotation.kind == Kind::connected) change(annotation.time, reported);
    if (annotation.kind == Kind::electrodesOff || annotation.kind == Kind::electrodesOn) {
      reported = annotation.kind == Kind::electrodesOn;
      change(annotation.time, reported);
    }
  }
  change(end, std::nullopt);
  return intervals;
}

std::optional<double> contactShare(const std::vector<ContactInterval>& intervals,
                                   timing::Nanoseconds end) {
  if (end <= timing::Nanoseconds::zero()) return std::nullopt;
  timing::Nanoseconds with{};
  for (const ContactInterval& one : intervals) {
    if (one.contact) with += one.to - one.from;
  }
  return std::chrono::duration<double>(with) / std::chrono::duration<double>(end);
}

}  // namespace Zephly::replay
