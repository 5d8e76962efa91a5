// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// When the electrodes had contact, from the events of a session.
///
///   for (const ContactInterval& one : contactIntervals(timeline.annotations, timeline.end)) ...
///   const std::optional<double> share = contactShare(intervals, timeline.end);

#include <hosts/replay/survey.h>
#include <timing/stream_clock.h>

#include <optional>
#include <vector>

namespace Zephly::replay {

/// A stretch in which the contact is known and does not change.
struct ContactInterval {
  timing::Nanoseconds from{};
  timing::Nanoseconds to{};
  bool contact = false;
};

/// In order of time. Left out is the time without a link and that before the first report: then
/// nothing is known.
std::vector<ContactInterval> contactIntervals(const std::vector<Annotation>& annotations,
                                              timing::Nanoseconds end);

/// The share of the session with contact, 0..1; empty for a session without length.
std::optional<double> contactShare(const std::vector<ContactInterval>& intervals,
                                   timing::Nanoseconds end);

}  // namespace Zephly::replay
