// SPDX-License-Identifier: MIT
#include <tests/soak/application.h>

#include <tests/support/session_test_access.h>
#include <zephly/motion/exercise.h>

namespace soak {

class Application::Delegate : public ZephlyDelegate {
 public:
  explicit Delegate(Application& owner) : owner_(owner) {}

  void didChangeLeadoffState(bool off) override {
    owner_.ledger_.leadoff(off);
    owner_.countCall();
  }
  void didConnectPeripheral() override {
    owner_.ledger_.connected();
    owner_.countCall();
  }
  void didDisconnectPeripheral() override {
    owner_.ledger_.disconnected();
    owner_.countCall();
  }
  void didReceiveTemperature(float object, float ambient, float body) override {
    owner_.ledger_.temperature(object, ambient, body);
    owner_.countCall();
  }
  void didReceiveECG(float sample) override {
    owner_.ledger_.ecg(sample);
    owner_.countCall();
  }
  void didReceiveRespiration(float sample) override {
    owner_.ledger_.respiration(sample);
    owner_.countCall();
  }
  void didReceiveBatteryStatus(BatteryStatus status) override {
    owner_.ledger_.battery(status);
    owner_.countCall();
  }

 private:
  Application& owner_;
};

class Application::Trainer : public WorkoutDelegate {
 public:
  explicit Trainer(Application& owner) : owner_(owner) {}

  void didDetectPushUp() override { detected(Zephly::Exercise::pushUp); }
  void didDetectSitUp() override { detected(Zephly::Exercise::sitUp); }
  void didDetectJump() override { detected(Zephly::Exercise::jump); }

 private:
  void detected(Zephly::Exercise exercise) {
    owner_.ledger_.repetition(exercise);
    owner_.countTrainerCall();
  }

  Application& owner_;
};

std::shared_ptr<ZephlyDelegate> Application::first() {
  ledger_.attachApplication(false);
  delegate_ = std::make_shared<Delegate>(*this);
  ++delegates_;
  return delegate_;
}

void Application::attach(::Zephly::Zephly& session, bool linkIsUp) {
  ledger_.attachApplication(linkIsUp);
  callsLeft_ = 0;
  delegate_ = std::make_shared<Delegate>(*this);
  SessionTestAccess::zephlyDelegate(session) = delegate_;
  ++delegates_;
}

// The ledger first, because samples in transit have no receiver from now on.
void Application::drop() {
  if (!delegate_) return;
  ledger_.detachApplication();
  delegate_.reset();
}

void Application::countCall() {
  if (callsLeft_ != 0 && --callsLeft_ == 0) drop();
}

void Application::attachTrainer(::Zephly::Zephly& session) {
  ledger_.attachTrainer();
  trainerCallsLeft_ = 0;
  trainer_ = std::make_shared<Trainer>(*this);
  session.startWorkoutDetection(trainer_);
  ++trainers_;
}

void Application::dropTrainer() {
  if (!trainer_) return;
  ledger_.detachTrainer();
  trainer_.reset();
}

void Application::countTrainerCall() {
  if (trainerCallsLeft_ != 0 && --trainerCallsLeft_ == 0) dropTrainer();
}

}  // namespace soak
