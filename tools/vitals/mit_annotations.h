// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Beats as an annotation file of the MIT format (G. B. Moody: WFDB Applications Guide, annot(5)),
/// which programs that score a detector read.
///
///   MitAnnotations annotations(360);
///   annotations.beat(beat);
///   file.write(annotations.bytes());
///
/// A normal beat is code 1 (N). One that is early or of another shape is code 13 (Q, a beat that is
/// not classified), because vitals do not say where in the heart it began. An artefact is code 16
/// (|, no beat).

#include <vitals/beat.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::recorders {

class MitAnnotations {
 public:
  /// `rate`: the annotations count time in samples of this rate.
  explicit MitAnnotations(double rate) : rate_(rate) {}

  /// States the rate at the beginning of the file. For a file that belongs to no WFDB record.
  void stateRate();
  /// In any order; times before 0 are taken for 0.
  void beat(const vitals::Beat& beat);
  /// The whole file.
  std::string bytes() const;

 private:
  struct Annotation {
    std::uint64_t sample = 0;
    std::uint16_t code = 0;
  };

  double rate_;
  std::string note_;
  std::vector<Annotation> annotations_;
};

}  // namespace Zephly::recorders
