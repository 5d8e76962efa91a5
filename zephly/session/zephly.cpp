// SPDX-License-Identifier: MIT
#include <zephly/session/zephly.h>

#include <zephly/platform/console.h>
#include <zephly/platform/fatal_error.h>

namespace Zephly {

std::shared_ptr<Zephly> Zephly::init(const std::shared_ptr<ZephlyDelegate>& zephlyDelegate) {
  auto self = std::shared_ptr<Zephly>(new Zephly);
  // From here on the session and its central manager own each other. No event can arrive before
  // init returns: a host never calls back from inside a call.
  self->centralManager = CentralManager::init(self);
  try {
    self->sp = ::SignalProcessor::init();
  } catch (...) {
    self->centralManager.reset();  // breaks the cycle of ownership; otherwise both would leak
    throw;
  }
  self->zephlyDelegate = zephlyDelegate;
  if (self->sp) {
    self->sp->setDelegate(self);
    self->sp->startWorkoutDetection();
  }
  return self;
}

void Zephly::startWorkoutDetection(const std::shared_ptr<WorkoutDelegate>& workoutDelegate) {
  if (!sp) return;
  sp->setDelegate(workoutDelegate);
  sp->startWorkoutDetection();
}

// The delegate is locked anew for each call: the application may destroy it at any time, also from
// within one of its callbacks.

void Zephly::didConnectPeripheral() {
  if (const auto delegate = zephlyDelegate.lock()) delegate->didConnectPeripheral();
}

void Zephly::didDisconnectPeripheral() {
  if (const auto delegate = zephlyDelegate.lock()) delegate->didDisconnectPeripheral();
}

void Zephly::didReceiveTemperature(float objectTemperature, float ambientTemperature) {
  constexpr float bodyTemperature = 0.0f;  // not estimated here
  if (const auto delegate = zephlyDelegate.lock()) {
    delegate->didReceiveTemperature(objectTemperature, ambientTemperature, bodyTemperature);
  }
}

void Zephly::didReceiveECG(const std::vector<float>& samples) {
  for (const float sample : samples) {
    if (const auto delegate = zephlyDelegate.lock()) delegate->didReceiveECG(sample);
  }
}

void Zephly::didReceiveRespiration(const std::vector<float>& samples) {
  for (const float sample : samples) processRespirationSample(sample);
}

void Zephly::processRespirationSample(float sample) {
  // Lead-off detection comes first: it may reset stages of the chain that filters this sample.
  if (sp) {
    const bool contact = sp->processLeadoffDetection(sample);
    if (leadoff != contact) {
      if (const auto delegate = zephlyDelegate.lock()) delegate->didChangeLeadoffState(!contact);
    }
    leadoff = contact;  // after the call: a change whose callback throws is reported again
  } else {
    leadoff.reset();
  }

  // The filters run only while there is a delegate; lead-off detection above always runs.
  if (const auto delegate = zephlyDelegate.lock()) {
    if (!sp) fatalError("Zephly.sp is empty while a respiration sample is processed");
    delegate->didReceiveRespiration(sp->processRespiration(sample));
  }
}

void Zephly::didReceiveBatteryStatus(BatteryStatus status) {
  if (const auto delegate = zephlyDelegate.lock()) delegate->didReceiveBatteryStatus(status);
}

void Zephly::didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                                 float az) {
  if (sp) sp->imu(qw, qx, qy, qz, ax, ay, az);
}

void Zephly::didReceiveIMUValues(float gx, float gy, float gz, float ax, float ay, float az,
                                 float mx, float my, float mz) {
  if (sp) sp->imu(gx, gy, gz, ax, ay, az, mx, my, mz);
}

void Zephly::didDetectPushUp() { console() << "PushUp!" << std::endl; }

void Zephly::didDetectSitUp() { console() << "SitUp!" << std::endl; }

void Zephly::didDetectJump() { console() << "Jump!" << std::endl; }

}  // namespace Zephly
