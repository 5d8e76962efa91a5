// SPDX-License-Identifier: MIT
#include <bindings/python/src/session.h>

#include <bindings/python/src/hosts.h>
#include <bindings/python/src/main_queue.h>

#include <zephly/session/zephly.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

namespace zephly_python {

const char* const workoutMethods[] = {"didDetectPushUp", "didDetectSitUp", "didDetectJump",
                                      nullptr};

namespace {

constexpr const char* sessionMethods[] = {"didChangeLeadoffState",   "didConnectPeripheral",
                                          "didDisconnectPeripheral", "didReceiveTemperature",
                                          "didReceiveECG",           "didReceiveRespiration",
                                          "didReceiveBatteryStatus", nullptr};

// The base of both delegates: calls a Python object on the queue during the lifetime of this
// object.
class Listener : public std::enable_shared_from_this<Listener> {
 public:
  Listener(std::shared_ptr<Queue> queue, py::object delegate)
      : queue_(std::move(queue)), delegate_(std::move(delegate)) {}
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  virtual ~Listener() = default;

  const PythonReference& delegate() const { return delegate_; }

 protected:
  template <class... Arguments>
  void report(const char* method, const Arguments&... arguments) {
    // An event may be held for the next run; it is dropped when the delegate is released before.
    queue_->call([weak = weak_from_this(), method, arguments...] {
      if (const auto self = weak.lock()) self->delegate_.call(method, arguments...);
    });
  }

 private:
  std::shared_ptr<Queue> queue_;
  PythonReference delegate_;
};

class Application final : public Listener, public ZephlyDelegate {
 public:
  using Listener::Listener;

  void didChangeLeadoffState(bool leadoff) override { report("didChangeLeadoffState", leadoff); }
  void didConnectPeripheral() override { report("didConnectPeripheral"); }
  void didDisconnectPeripheral() override { report("didDisconnectPeripheral"); }
  void didReceiveTemperature(float object, float ambient, float body) override {
    report("didReceiveTemperature", object, ambient, body);
  }
  void didReceiveECG(float sample) override { report("didReceiveECG", sample); }
  void didReceiveRespiration(float sample) override { report("didReceiveRespiration", sample); }
  void didReceiveBatteryStatus(BatteryStatus status) override {
    report("didReceiveBatteryStatus", status);
  }
};

class Workout final : public Listener, public WorkoutDelegate {
 public:
  using Listener::Listener;

  void didDetectPushUp() override { report("didDetectPushUp"); }
  void didDetectSitUp() override { report("didDetectSitUp"); }
  void didDetectJump() override { report("didDetectJump"); }
};

class Session {
 public:
  Session(py::object delegate, std::shared_ptr<HostObject> host) : host_(std::move(host)) {
    requireMethods(delegate, "the delegate", sessionMethods);
    host_->queue()->requireThread();
    host_->use();
    const KitUse use;
    application_ = std::make_shared<Application>(host_->queue(), std::move(delegate));
    session_ = ::Zephly::Zephly::init(application_);
  }

  void startWorkoutDetection(py::object delegate) {
    requireMethods(delegate, "the workout delegate", workoutMethods);
    if (!application_) throw py::value_error("the session is closed");
    host_->queue()->requireThread();
    workout_ = std::make_shared<Workout>(host_->queue(), std::move(delegate));
    session_->startWorkoutDetection(workout_);
  }

  py::object delegate() const {
    return application_ ? application_->delegate().orNone() : py::none();
  }

  void close() {
    application_.reset();
    workout_.reset();
  }

  int visit(visitproc visitor, void* context) const {
    for (const Listener* listener : {static_cast<const Listener*>(application_.get()),
                                     static_cast<const Listener*>(workout_.get())}) {
      PyObject* owned = listener != nullptr ? listener->delegate().owned() : nullptr;
      if (owned == nullptr) continue;
      if (const int result = visitor(owned, context); result != 0) return result;
    }
    return 0;
  }
  void clear() { close(); }

 private:
  std::shared_ptr<HostObject> host_;
  std::shared_ptr<Application> application_;
  std::shared_ptr<Workout> workout_;
  std::shared_ptr<::Zephly::Zephly> session_;
};

std::string describe(const BatteryStatus& status) {
  char text[64];
  (void)std::snprintf(text, sizeof text, "BatteryStatus(soc=%.9g, inCharge=%s)",
                      static_cast<double>(status.soc), status.inCharge ? "True" : "False");
  return text;
}

}  // namespace

void bindSession(py::module_& module) {
  py::class_<BatteryStatus>(module, "BatteryStatus", "One report of the strap's battery.")
      .def(py::init([](float soc, bool inCharge) {
             return BatteryStatus{.soc = soc, .inCharge = inCharge};
           }),
           py::arg("soc"), py::arg("inCharge"))
      .def_readonly("soc", &BatteryStatus::soc, "State of charge in percent.")
      .def_readonly("inCharge", &BatteryStatus::inCharge, "True while the strap is charging.")
      .def(
          "__eq__",
          [](const BatteryStatus& left, const BatteryStatus& right) { return left == right; },
          py::is_operator())
      .def("__repr__", &describe);

  py::class_<Session, std::shared_ptr<Session>>(
      module, "Zephly",
      R"(The session: finds a strap on `host`, keeps it connected, and reports to `delegate`.

The delegate is any object with some of these methods; those that it does not have are not called:

  didConnectPeripheral(), didDisconnectPeripheral()
  didChangeLeadoffState(leadoff)       True: the electrodes have lost contact with the skin
  didReceiveECG(sample)                500 a second, unfiltered; full scale is +-2.42
  didReceiveRespiration(sample)        500 a second, filtered, 0..1
  didReceiveTemperature(objectTemperature, ambientTemperature, bodyTemperature)
                                       degrees Celsius, one a second; bodyTemperature is always 0
  didReceiveBatteryStatus(status)      a BatteryStatus

All are called while the host's queue runs, on its thread. The session keeps delegate and host alive until close().)",
      collectable<Session>())
      .def(py::init<py::object, std::shared_ptr<HostObject>>(), py::arg("delegate"),
           py::arg("host").none(false))
      .def(
          "startWorkoutDetection", &Session::startWorkoutDetection, py::arg("workoutDelegate"),
          R"(Reports repetitions to an object with some of didDetectPushUp(), didDetectSitUp() and didDetectJump().)")
      .def("close", &Session::close, "Releases the delegates: no events are reported any more.")
      .def_property_readonly("delegate", &Session::delegate, "The delegate; None after close().");
}

}  // namespace zephly_python
