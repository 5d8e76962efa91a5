// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The annotations of an EDF+ file. The timeline has an event for each change; a reader of EDF+
/// wants one annotation for each stretch that it has to leave out of an analysis. The text of such
/// an annotation begins with BAD_, which MNE-Python excludes.
///
///   for (const EdfAnnotation& one : edfAnnotations(timeline, {begin, end})) write(one);
///
/// Together, the annotations that begin with BAD_ cover every slot without a sample of ECG or
/// respiration, except breaks of less than one and a half frames.

#include <hosts/replay/survey.h>
#include <timing/stream_clock.h>
#include <vitals/vitals.h>

#include <optional>
#include <string>
#include <vector>

namespace Zephly::exporting {

/// A stretch of time on the session's clock.
struct EdfSpan {
  timing::Nanoseconds from;
  timing::Nanoseconds to;  ///< not before `from`
};

struct EdfAnnotation {
  EdfSpan span;
  bool hasDuration;
  std::string text;
};

/// In order of time. `file`: its first slot, and the end of its last second. `more`: annotations
/// that are added, such as those of an EdfVitals.
std::vector<EdfAnnotation> edfAnnotations(const replay::Timeline& timeline, const EdfSpan& file,
                                          const std::vector<EdfAnnotation>& more = {});

/// Collects beats and breaths as annotations; artefacts are left out.
class EdfVitals final : public vitals::Receiver {
 public:
  void beat(const vitals::Beat& beat) override;
  void breath(const vitals::Breath& breath) override;
  void second(const vitals::Second& /*second*/) override {}

  const std::vector<EdfAnnotation>& annotations() const { return annotations_; }

 private:
  std::vector<EdfAnnotation> annotations_;
};

}  // namespace Zephly::exporting
