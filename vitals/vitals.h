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
/// Takes what the strap sends, not what the kit's filters make of it. Times increase within a
/// stream; a step of more than 1.5 sample periods and 50 ms is a gap. The two streams may be ahead
/// of each other by up to 5 s; then the results do not depend on how they are interleaved or cut
/// into calls. A stream that is 5 s behind the other one is taken as silent from there.
///
/// The same samples give the same bits with every supported compiler. No call allocates memory; the
/// state does not grow. Not thread-safe: one thread at a time.

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

/// The state at the end of one second. Empty: not known.
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
  virtual void breath(const Breath& breath) = 0;
  /// Every second of the samples' time, at most 1.5 s after its end.
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
  /// Reports what is held back. Later samples begin anew, as after a gap.
  void finish();

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace Zephly::vitals
