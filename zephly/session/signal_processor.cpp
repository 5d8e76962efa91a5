// SPDX-License-Identifier: MIT
#include <zephly/session/signal_processor.h>

#include <zephly/platform/fatal_error.h>

#include <utility>

namespace {

// The engine's callbacks, called from within its `imu`. `context` is the wrapper, which
// SignalProcessor::imu keeps alive. Each reads the delegate at the time of the call, and keeps it
// alive until the call returns.

void jump(void* context) {
  const auto* wrapper = static_cast<const SignalProcessor*>(context);
  if (const auto delegate = wrapper->delegate()) delegate->didDetectJump();
}

void situp(void* context) {
  const auto* wrapper = static_cast<const SignalProcessor*>(context);
  if (const auto delegate = wrapper->delegate()) delegate->didDetectSitUp();
}

void pushup(void* context) {
  const auto* wrapper = static_cast<const SignalProcessor*>(context);
  if (const auto delegate = wrapper->delegate()) delegate->didDetectPushUp();
}

}  // namespace

SignalProcessor::SignalProcessor() : ownEngine_(std::make_unique<::Zephly::SignalProcessor>()) {
  setSignalProcessor(ownEngine_.get());
}

std::shared_ptr<SignalProcessor> SignalProcessor::init() {
  return std::shared_ptr<SignalProcessor>(new SignalProcessor);
}

float SignalProcessor::processECG(float sample) { return requireEngine().processECG(sample); }

float SignalProcessor::processRespiration(float sample) {
  return requireEngine().processRespiration(sample);
}

bool SignalProcessor::processLeadoffDetection(float sample) {
  return requireEngine().processLeadoffDetection(sample);
}

void SignalProcessor::imu(float gx, float gy, float gz, float ax, float ay, float az, float mx,
                          float my, float mz) {
  // The delegate may release the last reference to this object, and with it the running engine.
  const auto alive = shared_from_this();
  requireEngine().imu(gx, gy, gz, ax, ay, az, mx, my, mz);
}

void SignalProcessor::imu(float qw, float qx, float qy, float qz, float ax, float ay, float az) {
  const auto alive = shared_from_this();  // as above
  requireEngine().imu(qw, qx, qy, qz, ax, ay, az);
}

void SignalProcessor::startWorkoutDetection() {
  requireEngine().setJumpCallback(jump, this);
  requireEngine().setSitUpCallback(situp, this);
  requireEngine().setPushUpCallback(pushup, this);
}

std::shared_ptr<WorkoutDelegate> SignalProcessor::delegate() const { return _delegate.lock(); }

void SignalProcessor::setDelegate(std::weak_ptr<WorkoutDelegate> delegate) {
  _delegate = std::move(delegate);
}

::Zephly::SignalProcessor* SignalProcessor::signalProcessor() const { return _signalProcessor; }

void SignalProcessor::setSignalProcessor(::Zephly::SignalProcessor* engine) {
  _signalProcessor = engine;
}

::Zephly::SignalProcessor& SignalProcessor::requireEngine() const {
  if (_signalProcessor == nullptr) Zephly::fatalError("SignalProcessor.signalProcessor is empty");
  return *_signalProcessor;
}

const Zephly::SelectorTable& SignalProcessor::selectors() const {
  using Self = SignalProcessor;
  using NineAxes = void (Self::*)(float, float, float, float, float, float, float, float, float);
  using SevenValues = void (Self::*)(float, float, float, float, float, float, float);
  static const Zephly::SelectorTable table{
      "SignalProcessor",
      {Zephly::selector<&Self::processECG>("processECG:"),
       Zephly::selector<&Self::processRespiration>("processRespiration:"),
       Zephly::selector<&Self::processLeadoffDetection>("processLeadoffDetection:"),
       Zephly::selector<static_cast<NineAxes>(&Self::imu)>("imu:gy:gz:ax:ay:az:mx:my:mz:"),
       Zephly::selector<static_cast<SevenValues>(&Self::imu)>("imu:qx:qy:qz:ax:ay:az:"),
       Zephly::selector<&Self::startWorkoutDetection>("startWorkoutDetection"),
       Zephly::selector<&Self::delegate>("delegate"),
       Zephly::selector<&Self::setDelegate>("setDelegate:"),
       Zephly::selector<&Self::signalProcessor>("signalProcessor"),
       Zephly::selector<&Self::setSignalProcessor>("setSignalProcessor:")}};
  return table;
}
