// SPDX-License-Identifier: MIT
#include <zephly/dsp/signal_processor.h>

#include <zephly/motion/gravity_compensation.h>
#include <zephly/motion/madgwick_ahrs.h>

namespace Zephly {

namespace {

constexpr float motionRate = 30.0F;  // samples per second

}  // namespace

SignalProcessor::SignalProcessor() = default;

float SignalProcessor::processECG(float sample) { return ecgFilter.process(sample); }

float SignalProcessor::processRespiration(float sample) {
  return respirationFilter.process(sample);
}

float SignalProcessor::processBodyTemperature(float object, float ambient) {
  return bodyTemperatureEstimator.process(object, ambient);
}

bool SignalProcessor::processLeadoffDetection(float sample) {
  const bool answer = leadoffDetector.process(sample);
  if (highPassResetHelper.shouldResetRespiration(answer)) {
    respirationFilter.highPass->reset();
  }
  if (normalizationResetHelper.shouldResetRespiration(answer)) {
    respirationFilter.normalization->reset();
  }
  return answer;
}

void SignalProcessor::setJumpCallback(void (*callback)(void*), void* context) {
  motionDetector.jumpCallback =
      callback != nullptr ? callback : MotionDetector::missingJumpCallback;
  motionDetector.context = context;
}

void SignalProcessor::setSitUpCallback(void (*callback)(void*), void* context) {
  motionDetector.sitUpCallback =
      callback != nullptr ? callback : MotionDetector::missingSitUpCallback;
  motionDetector.context = context;
}

void SignalProcessor::setPushUpCallback(void (*callback)(void*), void* context) {
  motionDetector.pushUpCallback =
      callback != nullptr ? callback : MotionDetector::missingPushUpCallback;
  motionDetector.context = context;
}

void SignalProcessor::imu(float gx, float gy, float gz, float ax, float ay, float az, float mx,
                          float my, float mz) {
  MadgwickAHRSupdate(gx, gy, gz, ax, ay, az, mx, my, mz);
  detectExercises(Quaternion(q1, q2, q3, q0), Vector3(ax, ay, az));
}

void SignalProcessor::imu(float qw, float qx, float qy, float qz, float ax, float ay, float az) {
  detectExercises(Quaternion(qx, qy, qz, qw), Vector3(ax, ay, az));
}

void SignalProcessor::detectExercises(Quaternion orientation, Vector3 acceleration) {
  motionDetector.process(orientation, gravityCompensate(orientation, acceleration), motionRate);
}

}  // namespace Zephly
