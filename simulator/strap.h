// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A simulated strap on a simulated person.
///
///   Strap strap({.seed = 7});
///   while (*strap.nextFrameTime() < 60s) send(strap.nextFrame());
///
/// All five streams come in order of time (streams of one instant in the order of allStreams), at
/// the rates of rates.h, and one seed gives the same bytes again in every strap of one build.
///
/// With a recording, the streams that it holds are played, once, from allSubscribed on; the other
/// streams are those of the modelled person, who stands at rest with everything in order: the plan
/// is then TrainingPlan::quiet(). When the recorded streams have ended, all have.
///
/// Not thread-safe: one thread at a time.

#include <simulator/frame.h>
#include <simulator/recording.h>
#include <simulator/training_plan.h>
#include <simulator/wearer.h>
#include <zephly/platform/export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace Zephly::simulator {

/// The wearer of the strap, and the recording that it plays.
struct StrapOptions {
  std::uint64_t seed = 1;
  TrainingPlan plan = TrainingPlan::standard();
  std::shared_ptr<const Recording> recording = nullptr;  ///< null: everything is modelled
  std::optional<Wearer> wearer = {};                     ///< none: a steady body
  WearerObserver* observer = nullptr;  ///< of the modelled body; must outlive the strap
};

/// What became of one recorded stream. All in samples (for motion and temperature: readings).
struct PlaybackCounts {
  std::size_t rows = 0;  ///< taken from the recording
  std::size_t samples =
      0;  ///< after resampling to the strap's rate: round(rows * rate / rowsPerSecond)
  std::size_t filled = 0;     ///< added to complete the last frame, by holding the last value
  std::size_t saturated = 0;  ///< of the samples, those beyond the strap's range
};

/// One strap from the moment it is switched on.
class ZEPHLY_EXPORT Strap : public FrameSource {
 public:
  /// Throws std::invalid_argument for a plan or a wearer that does not pass its check().
  explicit Strap(const StrapOptions& options = {});
  ~Strap() override;
  Strap(const Strap&) = delete;
  Strap& operator=(const Strap&) = delete;

  /// A recording begins at `now`, or with the last frame taken if that is later. So the next frame
  /// may come earlier than the time returned before: ask again. Without a recording it means
  /// nothing.
  void allSubscribed(StrapTime now) override;
  std::optional<StrapTime> nextFrameTime() const override;
  Frame nextFrame() override;

  /// Whether a recording has been played to its end. No frame follows.
  bool finished() const;
  /// Empty when the stream is modelled.
  std::optional<PlaybackCounts> playback(Stream stream) const;

  /// The true values of the wearer, for comparison with the kit's results. `time` is any time from
  /// 0 on.
  const TrainingPlan& plan() const;
  Repetitions repetitionsDone(StrapTime time) const;
  bool electrodesOn(StrapTime time) const;
  double heartRate(StrapTime time) const;      ///< beats per minute, without its variability
  double breathingRate(StrapTime time) const;  ///< breaths per minute

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace Zephly::simulator
