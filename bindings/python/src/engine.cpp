// SPDX-License-Identifier: MIT
#include <bindings/python/src/engine.h>

#include <bindings/python/src/arrays.h>
#include <bindings/python/src/session.h>

#include <zephly/dsp/signal_processor.h>
#include <zephly/session/signal_processor.h>

#include <array>
#include <exception>
#include <memory>
#include <utility>

namespace zephly_python {

namespace {

// Calls Python during the processing of a motion sample. An exception must not propagate through
// the detector: it is kept until the sample has been processed.
class Repetitions {
 public:
  template <class Call>
  void callPython(const Call& call) {
    const py::gil_scoped_acquire python;
    if (failure_) return;
    try {
      call();
    } catch (...) {
      failure_ = std::current_exception();
      failed_ = true;
    }
  }

  // One step of motion processing has been made; without the GIL.
  void raise() {
    if (!failed_) return;
    const py::gil_scoped_acquire python;
    failed_ = false;
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }

 private:
  std::exception_ptr failure_;
  bool failed_ = false;
};

// Motion samples for `processor`, an engine or a wrapper: rows of seven or nine values.
template <class Processor>
void processMotion(Processor& processor, Busy& busy, Repetitions& repetitions,
                   const py::object& samples) {
  if (!py::isinstance<py::array>(samples))
    throw py::type_error("expected an array of float32 with rows of 7 or 9 values");
  const py::array array = requireArray<float>(samples, 2);
  const py::ssize_t width = array.shape(1);
  if (width != 7 && width != 9) {
    throw py::value_error("a motion sample has 7 or 9 values, not " + std::to_string(width));
  }
  const Busy::Use use(busy);
  const KitUse kit;
  const auto* values = static_cast<const float*>(array.data());
  inPieces(array.shape(0), [&](py::ssize_t row) {
    const float* v = values + row * width;
    if (width == 7) {
      processor.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
    } else {
      processor.imu(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
    }
    repetitions.raise();
  });
}

class EngineObject {
 public:
  EngineObject() {
    // All three from the beginning: a repetition without its callback ends the process.
    engine_.setJumpCallback(&EngineObject::onRepetition<0>, this);
    engine_.setSitUpCallback(&EngineObject::onRepetition<1>, this);
    engine_.setPushUpCallback(&EngineObject::onRepetition<2>, this);
  }
  EngineObject(const EngineObject&) = delete;
  EngineObject& operator=(const EngineObject&) = delete;

  Samples32 ecg(const Samples32& samples) {
    return processed<float, float>(busy_, samples,
                                   [this](float sample) { return engine_.processECG(sample); });
  }
  Samples32 respiration(const Samples32& samples) {
    return processed<float, float>(
        busy_, samples, [this](float sample) { return engine_.processRespiration(sample); });
  }
  Contacts leadoff(const Samples32& samples) {
    return processed<float, bool>(
        busy_, samples, [this](float sample) { return engine_.processLeadoffDetection(sample); });
  }
  Samples32 temperature(const Samples32& object, const Samples32& ambient);
  void imu(const MotionSamples& samples) { processMotion(engine_, busy_, repetitions_, samples); }

  template <int Which>
  void setCallback(const std::optional<Callback>& callback) {
    const Busy::Use use(busy_);
    callbacks_[Which] = callback ? PythonReference(*callback) : PythonReference();
  }

  int visit(visitproc visitor, void* context) const {
    for (const PythonReference& callback : callbacks_) {
      if (callback.owned() == nullptr) continue;
      if (const int result = visitor(callback.owned(), context); result != 0) return result;
    }
    return 0;
  }
  void clear() { callbacks_ = {}; }

 private:
  template <int Which>
  static void onRepetition(void* context) {
    auto& self = *static_cast<EngineObject*>(context);
    self.repetitions_.callPython([&] {
      const PythonReference callback = self.callbacks_[Which];
      if (callback) callback.get()();
    });
  }

  ::Zephly::SignalProcessor engine_;
  Busy busy_;
  Repetitions repetitions_;
  std::array<PythonReference, 3> callbacks_;
};

Samples32 EngineObject::temperature(const Samples32& object, const Samples32& ambient) {
  const Busy::Use use(busy_);
  const bool arrays = py::isinstance<py::array>(object);
  if (arrays != py::isinstance<py::array>(ambient))
    throw py::type_error("expected two numbers or two arrays");
  if (!arrays)
    return py::cast(engine_.processBodyTemperature(requireNumber<float>(object),
                                                   requireNumber<float>(ambient)));
  const py::array skin = requireArray<float>(object, 1);
  const py::array air = requireArray<float>(ambient, 1);
  if (skin.size() != air.size()) {
    throw py::value_error("the arrays differ in length: " + std::to_string(skin.size()) + " and " +
                          std::to_string(air.size()));
  }
  py::array_t<float> results(skin.size());
  const auto* skins = static_cast<const float*>(skin.data());
  const auto* airs = static_cast<const float*>(air.data());
  float* out = results.mutable_data();
  inPieces(skin.size(), [=, this](py::ssize_t index) {
    out[index] = engine_.processBodyTemperature(skins[index], airs[index]);
  });
  return results;
}

class WrapperObject {
 public:
  WrapperObject() : wrapper_(::SignalProcessor::init()) {
    // From the beginning: the engine ends the process at a repetition without its callback.
    wrapper_->startWorkoutDetection();
  }

  Samples32 ecg(const Samples32& samples) {
    return processed<float, float>(busy_, samples,
                                   [this](float sample) { return wrapper_->processECG(sample); });
  }
  Samples32 respiration(const Samples32& samples) {
    return processed<float, float>(
        busy_, samples, [this](float sample) { return wrapper_->processRespiration(sample); });
  }
  Contacts leadoff(const Samples32& samples) {
    return processed<float, bool>(
        busy_, samples, [this](float sample) { return wrapper_->processLeadoffDetection(sample); });
  }
  void imu(const MotionSamples& samples) { processMotion(*wrapper_, busy_, repetitions_, samples); }
  // Nothing is left to do: see the constructor.
  void startWorkoutDetection() {}

  py::object delegate() const { return workout_ ? workout_->reference.orNone() : py::none(); }
  void setDelegate(const py::object& delegate) {
    if (!delegate.is_none()) requireDelegate(delegate, "the workout delegate", workoutMethods);
    workout_ = delegate.is_none() ? nullptr : std::make_shared<Workout>(repetitions_, delegate);
    wrapper_->setDelegate(workout_);
  }

  int visit(visitproc visitor, void* context) const {
    PyObject* owned = workout_ ? workout_->reference.owned() : nullptr;
    return owned != nullptr ? visitor(owned, context) : 0;
  }
  void clear() { workout_.reset(); }

 private:
  struct Workout final : WorkoutDelegate {
    Workout(Repetitions& receiver, const py::object& delegate)
        : repetitions(receiver), reference(delegate) {}
    void didDetectPushUp() override { report("didDetectPushUp"); }
    void didDetectSitUp() override { report("didDetectSitUp"); }
    void didDetectJump() override { report("didDetectJump"); }
    void report(const char* method) {
      repetitions.callPython([this, method] { reference.call(method); });
    }

    Repetitions& repetitions;
    PythonReference reference;
  };

  std::shared_ptr<::SignalProcessor> wrapper_;
  Busy busy_;
  Repetitions repetitions_;
  std::shared_ptr<Workout> workout_;
};

constexpr const char* ecgText =
    "ECG samples, filtered and normalised to 0..1: float32 in, float32 out. For 500 samples a "
    "second.";
constexpr const char* respirationText =
    "Respiration samples, filtered and normalised to 0..1: float32 in, float32 out. For 500 "
    "samples a second.";
constexpr const char* leadoffText =
    R"(Electrode contact from raw respiration samples: float32 in, bool out, True for contact.

Some seconds of processor time after contact was lost it resets two stages of the respiration chain. In a whole array
that may be never, or at another sample than the last time.)";
constexpr const char* imuText =
    R"(Motion samples, 30 a second: float32, one a row, of 7 or 9 values.

7: unit quaternion qw, qx, qy, qz; acceleration ax, ay, az in g.
9: rotation gx, gy, gz in rad/s; acceleration ax, ay, az in g; magnetic field mx, my, mz in any unit.
What a callback raises comes out; the samples after that one are then not processed. The orientation of the nine-axis
fusion is one in a process.)";

}  // namespace

void bindEngine(py::module_& module) {
  py::class_<EngineObject, std::shared_ptr<EngineObject>>(
      module, "Engine", R"(One complete processing state, the class Zephly::SignalProcessor of C++.

Operations take a number or a whole NumPy array, and go on where the call before ended. Each engine leaves about 50 KB
behind when it goes: its chains live as long as the process.)",
      collectable<EngineObject>())
      .def(py::init<>())
      .def("processECG", &EngineObject::ecg, py::arg("samples"), ecgText)
      .def("processRespiration", &EngineObject::respiration, py::arg("samples"), respirationText)
      .def("processLeadoffDetection", &EngineObject::leadoff, py::arg("samples"), leadoffText)
      .def("processBodyTemperature", &EngineObject::temperature, py::arg("object"),
           py::arg("ambient"),
           "An estimate of the core body temperature from skin (object) and ambient temperature, "
           "all "
           "in degrees Celsius, float32. The session does not compute it. Settled after 20 "
           "readings; "
           "not validated.")
      .def("imu", &EngineObject::imu, py::arg("samples"), imuText)
      .def("setJumpCallback", &EngineObject::setCallback<0>, py::arg("callback"),
           "Called once a jump, inside imu(); or None.")
      .def("setSitUpCallback", &EngineObject::setCallback<1>, py::arg("callback"),
           "Called once a sit-up, inside imu(); or None.")
      .def("setPushUpCallback", &EngineObject::setCallback<2>, py::arg("callback"),
           "Called once a push-up, inside imu(); or None.");

  py::class_<WrapperObject, std::shared_ptr<WrapperObject>>(
      module, "SignalProcessor",
      R"(The engine with a workout delegate, the class ::SignalProcessor of C++.

The delegate is any object with some of didDetectPushUp(), didDetectSitUp() and didDetectJump(); it is kept alive.)",
      collectable<WrapperObject>())
      .def(py::init<>())
      .def("processECG", &WrapperObject::ecg, py::arg("samples"), ecgText)
      .def("processRespiration", &WrapperObject::respiration, py::arg("samples"), respirationText)
      .def("processLeadoffDetection", &WrapperObject::leadoff, py::arg("samples"), leadoffText)
      .def("imu", &WrapperObject::imu, py::arg("samples"), imuText)
      .def("startWorkoutDetection", &WrapperObject::startWorkoutDetection,
           "Does nothing: detection always runs, and reports repetitions to the delegate, if there "
           "is "
           "one.")
      .def("delegate", &WrapperObject::delegate, "The receiver of repetitions, or None.")
      .def("setDelegate", &WrapperObject::setDelegate, py::arg("delegate"),
           "Reports repetitions to this object; None: to no object.");
}

}  // namespace zephly_python
