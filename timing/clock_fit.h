#pragma once
/// @file
/// From the times at which frames arrived to the times at which their samples were taken.
///
///   ClockFit fit({.perSecond = 500, .samplesPerFrame = 6, .silence = 2s});
///   fit.beginLink(connected);
///   for (const Frame& frame : frames) fit.frame(frame.arrival);
///   const StreamClock clock = fit.finish();
///
/// A frame arrives when it has been measured or later, never earlier; how much later is anybody's
/// guess. So the line of the strap's clock lies below all arrivals, as close to them as it can: of
/// all lines that no arrival lies below, the one with the least sum of distances. That line is an
/// edge of the lower convex hull of the arrivals, the one at their mean (S. B. Moon, P. Skelly,
/// D. Towsley: Estimation and removal of clock skew from network delay measurements, INFOCOM 1999),
/// so that the hull is all that must be kept. docs/export.md tells how far off it is.
///
/// After a silence within a link it is uncertain whether frames were lost. The frames that follow
/// tell: when they are as late as those before, within a tenth of the silence, all that was held
/// back has come.
///
/// The time that even the fastest frame needs cannot be seen and stays in the result.

#include <timing/stream_clock.h>

#include <cstdint>
#include <vector>

namespace Zephly::timing {

/// How far a strap's clock may be off its nominal rate, as a part of it.
inline constexpr double largestDrift = 500e-6;
/// Arrivals over less than this tell nothing of the rate: it is that of the longest segment of the
/// stream, or the nominal one.
inline constexpr std::chrono::seconds shortestForRate{60};

/// The lower convex hull of points that come from left to right.
class LowerHull {
 public:
  /// `x` is the number of a sample, `y` the time of its arrival.
  struct Point {
    double x;
    double y;
  };

  /// `x` must be greater than before.
  void add(Point point);
  /// All points of `other`, moved by `by`; they must lie right of those that are here.
  void add(const LowerHull& other, Point by);
  /// The slope of the line below all points with the least sum of distances. There must be two
  /// points at least.
  double bestSlope() const;
  /// Where a line of that slope that touches the points from below meets x = 0. There must be a
  /// point.
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

  /// A link has come up: what follows has nothing to do with what was before.
  void beginLink(Nanoseconds time);
  void frame(Nanoseconds arrival);
  std::int64_t samples() const { return samples_; }

  StreamClock finish() const;

 private:
  // Frames without a silence, on one link.
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
