// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Beats, heart rate, breathing and their quality, from the raw samples of a strap or of another
/// recorder, while they arrive or from a file.
///
///   Vitals vitals({.ecgRate = 500, .respirationRate = 500}, receiver);
///   vitals.contact(time, true);
///   vitals.ecg(time, value);          // every sample, in the order of the stream
///   vitals.respiration(time, value);  // raw, not the kit's filtered value
///   vitals.finish();                  // reports what is still held back
///
/// Takes what the strap sends, not what the kit's filters make of it.
///
/// Times increase within a stream; a sample that is not later than the one before it is ignored,
/// and so is one whose time is further than 146 years from 0. A step of more than 1.5 sample
/// periods and 50 ms is a gap. A value that is not a number, or infinite, is a missing one.
///
/// Contact applies to each stream from its first sample at that time or later: report it before
/// these samples. Until the first report there may be contact.
///
/// The two streams may be ahead of each other by up to 5 s; then the beats, the breaths and the
/// seconds do not depend on how the streams are interleaved or cut into calls. A stream that is 5 s
/// behind the other one is taken as silent from there. So merge the streams of a file by their
/// times, and end a piece of one of them at a gap.
///
/// The same samples give the same bits with every supported compiler. No call but finish()
/// allocates memory; the state does not grow. Not thread-safe: one thread at a time.

#include <vitals/beat.h>
#include <vitals/breath.h>
#include <zephly/platform/export.h>

#include <memory>
#include <optional>

namespace Zephly::vitals {

struct Settings {
  double ecgRate = 500;          ///< samples per second, nominally, 100 to 1000; 0: no ECG
  double respirationRate = 500;  ///< samples per second, nominally, 10 to 1000; 0: none
  bool searchBack = false;       ///< also look for weak beats where one is missing; reported late
};

/// The state at the end of one second: a whole one of the clock of the samples. Empty: not known.
struct Second {
  Time time{};                          ///< its end
  std::optional<double> heartRate;      ///< beats per minute, of the median of the last beats
  double heartRateQuality = 0;          ///< 0..1
  double ecgQuality = 0;                ///< 0..1, of the samples of this second
  std::optional<double> breathingRate;  ///< breaths per minute
  double breathingQuality = 0;          ///< 0..1
  bool breathingDerived = false;        ///< from the ECG
  double respirationQuality = 0;        ///< 0..1, of the samples of this second
  std::optional<bool> contact;          ///< empty before the first report

  friend bool operator==(const Second&, const Second&) = default;
};

/// Where the results go. Called from inside the calls of Vitals.
class ZEPHLY_EXPORT Receiver {
 public:
  virtual ~Receiver() = default;
  /// At most 0.5 s after its R peak, except a late one. In order of time, late ones excepted.
  virtual void beat(const Beat& beat) = 0;
  /// In order of time. Reported with the second in which it was found, some seconds after its top:
  /// only then it is known whether breaths of the ECG take its place.
  virtual void breath(const Breath& breath) = 0;
  /// Every second in which there is a sample of either stream, at most 0.5 s after both streams
  /// have reached its end; 5 s after its end while one of them is silent. All of its beats have
  /// been reported before.
  virtual void second(const Second& second) = 0;
};

class ZEPHLY_EXPORT Vitals {
 public:
  /// Does not own `receiver`. Throws std::invalid_argument for rates out of range.
  Vitals(const Settings& settings, Receiver& receiver);
  ~Vitals();
  Vitals(Vitals&&) noexcept;
  Vitals& operator=(Vitals&&) noexcept;

  void ecg(Time time, float value);
  void respiration(Time time, float value);
  /// Whether the electrodes touch the skin, from `time` on.
  void contact(Time time, bool on);
  /// Reports what is held back. Later samples begin anew, also at an earlier time. A second that
  /// continues after it is reported in two parts.
  void finish();

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace Zephly::vitals
