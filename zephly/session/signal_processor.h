// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The engine as an object: one sample in, one result out; exercise repetitions are reported to a
/// delegate.
///
///   auto processor = ::SignalProcessor::init();
///   float filtered = processor->processECG(sample);
///   processor->setDelegate(workout);            // not owned
///   processor->startWorkoutDetection();
///   processor->imu(qw, qx, qy, qz, ax, ay, az); // may call workout->didDetectJump()
///
/// Does no processing itself: values pass to the engine and back unchanged, NaN and infinities
/// included. Also driven by message name ("processECG:", "imu:qx:qy:qz:ax:ay:az:", ...). Calls, and
/// the delegate's calls from inside them, are made on one thread at a time.

#include <zephly/dsp/signal_processor.h>
#include <zephly/platform/export.h>
#include <zephly/platform/ns_object.h>
#include <zephly/session/workout_delegate.h>

#include <memory>

/// Owns one engine and forwards calls to it.
class ZEPHLY_EXPORT SignalProcessor : public NSObject {
 public:
  /// A wrapper with a new engine. An allocation failure propagates and leaks nothing.
  static std::shared_ptr<SignalProcessor> init();

  SignalProcessor(const SignalProcessor&) = delete;
  SignalProcessor& operator=(const SignalProcessor&) = delete;

  /// Raw ECG sample to filtered sample, 0..1.
  float processECG(float sample);
  /// Raw respiration sample to breathing waveform, 0..1.
  float processRespiration(float sample);
  /// Raw respiration sample to electrode contact: true while there is contact.
  bool processLeadoffDetection(float sample);
  /// A nine-axis motion sample: rotation rate in rad/s, acceleration in g, magnetic field in any
  /// unit.
  void imu(float gx, float gy, float gz, float ax, float ay, float az, float mx, float my,
           float mz);
  /// A motion sample with its orientation: quaternion, scalar first, and acceleration in g.
  void imu(float qw, float qx, float qy, float qz, float ax, float ay, float az);

  /// Registers this object with the engine as the receiver of repetitions. Calling it again changes
  /// nothing.
  void startWorkoutDetection();

  /// The receiver of repetitions, or empty. Replacing it takes effect with the next repetition;
  /// without a receiver repetitions are lost.
  std::shared_ptr<WorkoutDelegate> delegate() const;
  void setDelegate(std::weak_ptr<WorkoutDelegate> delegate);

  /// The engine in use. The setter replaces it without freeing the old one and without owning the
  /// new one, which must stay alive as long as it is in use here, and must be given no motion
  /// samples after this object is gone once startWorkoutDetection was called. The engine that init
  /// created is freed together with this object.
  ::Zephly::SignalProcessor* signalProcessor() const;
  void setSignalProcessor(::Zephly::SignalProcessor* engine);

 protected:
  const Zephly::SelectorTable& selectors() const override;

 private:
  SignalProcessor();

  ::Zephly::SignalProcessor& requireEngine() const;

  std::weak_ptr<WorkoutDelegate> _delegate;
  ::Zephly::SignalProcessor* _signalProcessor = nullptr;
  // Freed only here: its callbacks hold this object's address.
  std::unique_ptr<::Zephly::SignalProcessor> ownEngine_;
};
