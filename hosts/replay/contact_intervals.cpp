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
  std::optional<ContactInterval> open;  // empty: contact is not known, or there is no link
  const auto close = [&](timing::Nanoseconds time) {
    if (open && time > open->from) {
      open->to = time;
      intervals.push_back(*open);
    }
    open.reset();
  };
  const auto begin = [&](timing::Nanoseconds time, bool contact) {
    close(time);
    open = ContactInterval{.from = time, .to = time, .contact = contact};
  };
  for (const Annotation& annotation : annotations) {
    if (annotation.kind == Kind::linkLost) close(annotation.time);
    if (annotation.kind == Kind::connected && reported) begin(annotation.time, *reported);
    if (annotation.kind == Kind::electrodesOff || annotation.kind == Kind::electrodesOn) {
      reported = annotation.kind == Kind::electrodesOn;
      begin(annotation.time, *reported);
    }
  }
  close(end);
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
