// SPDX-License-Identifier: MIT
#include <bindings/python/src/session.h>

#include <bindings/python/src/hosts.h>
#include <bindings/python/src/main_queue.h>
#include <bindings/python/src/vitals.h>

#include <hosts/vitals/session_vitals.h>
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

// All methods of all delegates: one object may be all of them.
py::list knownMethods() {
  py::list known;
  for (const char* const* methods : {sessionMethods, workoutMethods, vitalsMethods}) {
    for (; *methods != nullptr; ++methods) known.append(*methods);
  }
  return known;
}

// The method that `name` may be a slip for; empty when it resembles none.
std::string meantBy(const py::str& name, const py::list& known) {
  std::string start = std::string(name).substr(0, 3);
  for (char& letter : start) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  const double similarity = start == "did" ? 0.6 : 0.8;
  const py::list matches =
      py::module_::import("difflib").attr("get_close_matches")(name, known, 1, similarity);
  return matches.empty() ? std::string() : std::string(py::str(matches[0]));
}

void warnOfSlips(const py::object& delegate, const char* what) {
  const py::list known = knownMethods();
  const auto names = py::reinterpret_steal<py::object>(PyObject_Dir(delegate.ptr()));
  if (!names) throw py::error_already_set();
  for (const py::handle item : names) {
    const py::str name(item);
    if (known.contains(name)) continue;
    const std::string meant = meantBy(name, known);
    if (meant.empty()) continue;
    if (PyCallable_Check(py::getattr(delegate, name, py::none()).ptr()) == 0) continue;
    const std::string text = std::string(what) + "'s method " + std::string(name) +
                             " is never called by the kit; did you mean " + meant + "?";
    if (PyErr_WarnEx(PyExc_UserWarning, text.c_str(), 1) != 0) throw py::error_already_set();
  }
}

// The base of both delegates: calls a Python object on the queue during the lifetime of this object
// and while its host is open.
class Listener : public std::enable_shared_from_this<Listener> {
 public:
  Listener(const HostObject& host, py::object delegate)
      : queue_(host.queue()), hostOpen_(host.open()), delegate_(std::move(delegate)) {}
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  virtual ~Listener() = default;

  const PythonReference& delegate() const { return delegate_; }

 protected:
  template <class... Arguments>
  void report(const char* method, const Arguments&... arguments) {
    // An event may be held for the next run; it is dropped when the delegate is released or the
    // host closed before.
    queue_->call([weak = weak_from_this(), method, arguments...] {
      const auto self = weak.lock();
      if (self && *self->hostOpen_) self->delegate_.call(method, arguments...);
    });
  }

 private:
  std::shared_ptr<Queue> queue_;
  std::shared_ptr<const bool> hostOpen_;
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

class VitalsListener final : public Listener, public ::Zephly::vitals::Receiver {
 public:
  using Listener::Listener;

  void beat(const ::Zephly::vitals::Beat& beat) override { report("didFindBeat", beat); }
  void breath(const ::Zephly::vitals::Breath& breath) override { report("didFindBreath", breath); }
  void second(const ::Zephly::vitals::Second& second) override {
    report("didMeasureSecond", second);
  }
};

// The vitals of one session: detection costs time, so only for a delegate that receives them.
struct MeasuredVitals {
  MeasuredVitals(const HostObject& host, const py::object& delegate)
      : listener(std::make_shared<VitalsListener>(host, delegate)),
        vitals(*listener, host.clock()) {}

  std::shared_ptr<VitalsListener> listener;
  ::Zephly::hosts::SessionVitals vitals;
};

bool hasAny(const py::object& delegate, const char* const* methods) {
  for (; *methods != nullptr; ++methods) {
    if (py::hasattr(delegate, *methods)) return true;
  }
  return false;
}

class Session {
 public:
  Session(const py::object& delegate, std::shared_ptr<HostObject> host) : host_(std::move(host)) {
    if (!hasAny(delegate, vitalsMethods)) {
      requireDelegate(delegate, "the delegate", sessionMethods);
    } else {
      warnOfSlips(delegate, "the delegate");
    }
    host_->queue()->requireThread();
    host_->use();
    const KitUse use;
    if (hasAny(delegate, vitalsMethods)) {
      vitals_ = std::make_shared<MeasuredVitals>(*host_, delegate);
    }
    application_ = std::make_shared<Application>(*host_, delegate);
    session_ = ::Zephly::Zephly::init(application_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() { clear(); }

  void startWorkoutDetection(py::object delegate) {
    requireDelegate(delegate, "the workout delegate", workoutMethods);
    if (!application_) throw py::value_error("the session is closed");
    host_->queue()->requireThread();
    workout_ = std::make_shared<Workout>(*host_, std::move(delegate));
    session_->startWorkoutDetection(workout_);
  }

  py::object delegate() const {
    return application_ ? application_->delegate().orNone() : py::none();
  }

  void close() {
    host_->queue()->requireThread();
    clear();
  }

  int visit(visitproc visitor, void* context) const {
    const Listener* const measured = vitals_ ? vitals_->listener.get() : nullptr;
    for (const Listener* listener : {static_cast<const Listener*>(application_.get()),
                                     static_cast<const Listener*>(workout_.get()), measured}) {
      PyObject* owned = listener != nullptr ? listener->delegate().owned() : nullptr;
      if (owned == nullptr) continue;
      if (const int result = visitor(owned, context); result != 0) return result;
    }
    return 0;
  }
  // The garbage collector's, from any thread.
  void clear() {
    application_.reset();
    workout_.reset();
    // The queue may be running in another thread, and this be a call from inside it.
    if (vitals_) host_->queue()->retire(std::exchange(vitals_, nullptr));
  }

 private:
  std::shared_ptr<HostObject> host_;
  std::shared_ptr<MeasuredVitals> vitals_;
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

void requireDelegate(const py::object& delegate, const char* what, const char* const* methods) {
  warnOfSlips(delegate, what);
  std::string names;
  for (; *methods != nullptr; ++methods) {
    if (py::hasattr(delegate, *methods)) return;
    names += (names.empty() ? "" : ", ") + std::string(*methods);
  }
  throw py::type_error(std::string(what) + " has none of the methods " + names);
}

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
                                       degrees Celsius, one a second: skin and ambient as the strap
                                       sent them; bodyTemperature is what the kit passes, always
                                       0.0: Engine.processBodyTemperature() computes an estimate
  didReceiveBatteryStatus(status)      a BatteryStatus
  didFindBeat(beat), didFindBreath(breath), didMeasureSecond(second)
                                       a Beat, a Breath, a Second: vitals, see the class Vitals

A method whose name resembles one of these, like didRecieveECG, is a UserWarning. All are called while the host's queue
runs, on its thread. The session keeps delegate and host alive until close().)",
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
