// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Estimates when samples were taken from the times at which their frames arrived.
///
///   ClockFit fit({.perSecond = 500, .samplesPerFrame = 6, .silence = 2s});
///   fit.beginLink(connected);
///   for (const Frame& frame : frames) fit.frame(frame.arrival);
///   const StreamClock clock = fit.finish();
///
/// A frame arrives after its last sample was taken, with a delay that is never negative and
/// otherwise unknown. So the line of the strap's clock lies below all arrivals and as close to them
/// as possible: among all lines with no arrival below them, it has the least sum of distances. This
/// line is the edge of the lower convex hull of the arrivals at their mean (S. B. Moon, P. Skelly,
/// D. Towsley: Estimation and removal of clock skew from network delay measurements, INFOCOM 1999),
/// so only the hull is kept. docs/export.md gives the error.
///
/// After a silence within a link, frames may have been lost or only delayed. The frames that follow
/// decide: if they are as late as those before the silence, within a tenth of its length, no frame
/// was lost.
///
/// The delay of the fastest frame cannot be observed and remains in the result.

#include <timing/stream_clock.h>

#include <cstdint>
#include <vector>

namespace Zephly::timing {

/// The largest relative deviation of a strap's clock from its nominal rate.
inline constexpr double largestDrift = 500e-6;
/// A segment shorter than this is too short to estimate its rate: it gets the rate of the stream's
/// longest segment, or the nominal one.
inline constexpr std::chrono::seconds shortestForRate{60};

/// The lower convex hull of points that are added from left to right.
class LowerHull {
 public:
  /// `x` is the number of a sample, `y` the time of its arrival.
  struct Point {
    double x;
    double y;
  };

  /// `x` must be greater than before.
  void add(Point point);
  /// All points of `other`, moved by `by`; they must lie right of all points of this hull.
  void add(const LowerHull& other, Point by);
  /// The slope of the line below all points with the least sum of distances. Needs at least two
  /// points.
  double bestSlope() const;
  /// The value at x = 0 of the line of that slope that touches the points from below. Needs at
  /// least one point.
  double offset(double slope) const;

 private:
  void extend(Point point);

  std::vector<Point> hull_;
  double sum_ = 0;  // of x
  std::int64_t count_ = 0;
};

/// One stream. Frames must come in order of time.
class ClockFit {
 public:
  explicit ClockFit(const StreamRate& rate) : rate_(rate) {}

  /// A link was established: the frames that follow are not joined with those before.
  void beginLink(Nanoseconds time);
  void frame(Nanoseconds arrival);
  std::int64_t samples() const { return samples_; }

  StreamClock finish() const;

 private:
  // Frames of one link without a silence between them. finish() joins stretches of one link when
  // no frame was lost between them; the result of each becomes a segment.
  struct Stretch {
    Nanoseconds linkBegin{};
    Nanoseconds first{};  // arrival; y is relative to it
    Nanoseconds last{};
    std::int64_t samples = 0;
    LowerHull hull;

    Nanoseconds length() const { return last - first; }
  };

  bool continues(const Stretch& before, const Stretch& after) const;
  std::vector<Stretch> joined() const;
  double slope(const Stretch& stretch) const;
  double commonPeriod(const std::vector<Stretch>& stretches) const;
  Segment place(const Stretch& stretch, double period, Nanoseconds before) const;

  StreamRate rate_;
  std::vector<Stretch> stretches_;
  Nanoseconds linkBegin_{};
  bool linkIsNew_ = true;
  std::int64_t samples_ = 0;
};

}  // namespace Zephly::timing
