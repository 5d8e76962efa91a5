// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The engine: everything that is computed for one strap, sample by sample.
///
///     auto engine = std::make_unique<Zephly::SignalProcessor>();
///     engine->setPushUpCallback(countPushUp, &counts);
///     const bool contact = engine->processLeadoffDetection(sample);
///     const float breath = engine->processRespiration(sample);

#include <zephly/dsp/body_temperature_estimator.h>
#include <zephly/dsp/ecg_multi_bandpass_filter.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/respiration_filter.h>
#include <zephly/dsp/respiration_filter_helper.h>
#include <zephly/motion/motion_detector.h>
#include <zephly/platform/export.h>

namespace Zephly {

/// One complete processing state; engines are independent of each other but for the orientation of
/// the nine-axis fusion, of which there is one per process (see motion/madgwick_ahrs.h).
///
/// Operations never fail and allocate nothing; construction throws std::bad_alloc when memory runs
/// out. What the ECG and respiration chains allocate is not given back (see there). Not
/// thread-safe: all calls for all engines come from one thread at a time.
class ZEPHLY_EXPORT SignalProcessor {
 public:
  SignalProcessor();
  SignalProcessor(const SignalProcessor&) = delete;
  SignalProcessor& operator=(const SignalProcessor&) = delete;

  /// The next ECG sample, filtered and normalised to 0..1.
  float processECG(float sample);

  /// The next respiration sample, filtered and normalised to 0..1.
  float processRespiration(float sample);

  /// Core body temperature from skin (`object`) and ambient temperature, all in degrees Celsius;
  /// see BodyTemperatureEstimator::process.
  float processBodyTemperature(float object, float ambient);

  /// Whether the electrodes touch the skin, from the next raw respiration sample: true, contact.
  /// When contact has been lost, the respiration chain's high-pass is settled 4.0 seconds of
  /// processor time later, and its normalisation window cleared after 4.1 seconds, each on the
  /// first call after that time; see RespirationFilterHelper for what a second loss does.
  bool processLeadoffDetection(float sample);

  /// Sets what is called once per jump, sit-up or push-up, synchronously from within `imu`. All
  /// three are to be set before the first motion sample: a repetition without its callback (never
  /// set, or set to null) is a fatal error. There is one `context` for all three, the one given
  /// last.
  void setJumpCallback(void (*callback)(void*), void* context);
  void setSitUpCallback(void (*callback)(void*), void* context);
  void setPushUpCallback(void (*callback)(void*), void* context);

  /// A raw motion sample: gyroscope in rad/s, accelerometer in g, magnetometer in any unit.
  /// Advances the orientation of the process and detects exercises with the new one. Expected 30
  /// times a second, which is not measured.
  void imu(float gx, float gy, float gz, float ax, float ay, float az, float mx, float my,
           float mz);

  /// A motion sample whose orientation the sensor has computed: a unit quaternion, scalar first,
  /// and the accelerometer in g. The orientation of the process plays no part.
  void imu(float qw, float qx, float qy, float qz, float ax, float ay, float az);

 private:
  void detectExercises(Quaternion orientation, Vector3 acceleration);

  MotionDetector motionDetector;
  RespirationFilterHelper highPassResetHelper{4.0F};
  RespirationFilterHelper normalizationResetHelper{4.1F};
  LeadoffDetector leadoffDetector;
  RespirationFilter respirationFilter;
  ECGMultiBandpassFilter ecgFilter;
  BodyTemperatureEstimator bodyTemperatureEstimator;
};

}  // namespace Zephly
