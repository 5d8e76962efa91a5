// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The stretches of an EDF+ file that are to be left out of an analysis: those with an annotation
/// whose text begins with BAD_, the convention of MNE-Python and of `zephly export`, which fills
/// gaps with zeros.
///
///   EdfExclusions exclusions;
///   exclusions.take(bytes);           // of an annotation signal, data record by data record
///   exclusions.complete();
///   exclusions.contain(61.5);

#include <cstddef>
#include <string_view>
#include <vector>

namespace Zephly::recorders {

class EdfExclusions {
 public:
  /// The annotations of one data record. What violates the format is ignored.
  void take(std::string_view annotations);
  /// After the last take().
  void complete();

  bool empty() const { return spans_.empty(); }
  /// Whether the time, in seconds of the file's clock, lies in one of them.
  bool contain(double time) const;

 private:
  struct Span {
    double from = 0;
    double to = 0;
  };

  std::vector<Span> spans_;  // once complete: in order, without overlaps
};

}  // namespace Zephly::recorders
