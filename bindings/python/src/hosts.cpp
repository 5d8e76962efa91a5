// SPDX-License-Identifier: MIT
#include <bindings/python/src/hosts.h>

#include <hosts/bluez/bluetooth.h>
#include <hosts/simulated/pacer.h>
#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>

namespace zephly_python {

namespace simulated = ::Zephly::simulated;
namespace simulator = ::Zephly::simulator;

namespace {

simulator::TrainingPlan planNamed(const std::string& name) {
  if (name == "standard") return simulator::TrainingPlan::standard();
  if (name == "quiet") return simulator::TrainingPlan::quiet();
  throw py::value_error("plan must be 'standard' or 'quiet', not '" + name + "'");
}

std::optional<double> checkedSpeed(std::optional<double> speed) {
  if (speed && !(std::isfinite(*speed) && *speed > 0)) {
    throw py::value_error("speed must be a finite number greater than 0, or None, not " +
                          std::to_string(*speed));
  }
  return speed;
}

std::uint64_t seedOf(const py::object& seed) {
  const auto number = py::reinterpret_steal<py::object>(PyNumber_Index(seed.ptr()));
  if (!number) throw py::error_already_set();
  const std::uint64_t value = PyLong_AsUnsignedLongLong(number.ptr());
  if (PyErr_Occurred() == nullptr) return value;
  PyErr_Clear();
  throw py::value_error("seed must be 0 to 18446744073709551615, not " + nameOf(number));
}

simulated::Device& addStrap(simulated::Radio& radio) {
  simulated::Device& device = radio.addDevice({.name = std::string(peripheralName)});
  simulated::addStrapProfile(device);
  return device;
}

double secondsOf(std::chrono::nanoseconds time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

void HostObject::setWorld(std::shared_ptr<void> world, Zephly::Host* host) {
  world_ = std::move(world);
  *open_ = true;
  host_ = host;
}

void HostObject::use() {
  requireOpen();
  Zephly::Host::use(host_);
}

void HostObject::close() {
  queue_->requireThread();
  switchOff();
}

void HostObject::switchOff() {
  if (!world_) return;
  *open_ = false;
  if (host_ != nullptr) Zephly::Host::leave(host_);
  host_ = nullptr;
  queue_->retire(std::exchange(world_, nullptr));
}

void HostObject::requireOpen() const {
  if (!world_) throw py::value_error("the host is closed");
}

std::function<std::chrono::nanoseconds()> HostObject::clock() const {
  return [began = std::chrono::steady_clock::now()] {
    return std::chrono::steady_clock::now() - began;
  };
}

struct SimulatedStrap::World {
  World(std::uint64_t seed, const simulator::TrainingPlan& plan)
      : radio(scheduler), strap({.seed = seed, .plan = plan}), device(addStrap(radio), strap) {
    device.loseLinksOf(plan);
  }

  simulated::Scheduler scheduler;
  simulated::Radio radio;
  simulator::Strap strap;
  simulated::StrapDevice device;
  std::optional<simulated::Pacer> pacer;
};

SimulatedStrap::SimulatedStrap(std::shared_ptr<Queue> queue, const Integer& seed,
                               std::optional<double> speed, const std::string& plan)
    : HostObject(std::move(queue)) {
  checkedSpeed(speed);
  HostObject::queue()->requireThread();
  const auto world = std::make_shared<World>(seedOf(seed), planNamed(plan));
  if (speed) world->pacer.emplace(HostObject::queue()->mainQueue(), world->scheduler, *speed);
  setWorld(world, &world->radio);
  world_ = world;
}

SimulatedStrap::World& SimulatedStrap::world() const {
  requireOpen();
  queue()->requireThread();
  return *world_.lock();
}

void SimulatedStrap::advance(double seconds) {
  const auto span = spanOf(seconds, "seconds");
  World& mine = world();
  if (mine.pacer)
    throw py::value_error("the strap runs at a speed of its own: advance() needs speed=None");
  const simulated::Time until = mine.scheduler.now() + span;
  queue()->turn([&] {
    // A callback may close the host, which then lives until the end of the turn.
    const auto going = [this] { return !queue()->stopWanted() && !closed(); };
    while (going() && mine.scheduler.runNext(until)) queue()->checkSignals();
    if (going()) mine.scheduler.advanceTo(until);
  });
}

double SimulatedStrap::strapTime() const { return secondsOf(world().device.strapTime()); }

std::function<std::chrono::nanoseconds()> SimulatedStrap::clock() const {
  return [weak = world_, last = std::chrono::nanoseconds{}]() mutable {
    if (const auto living = weak.lock()) last = living->scheduler.now();
    return last;
  };
}

py::dict SimulatedStrap::samplesSent() const {
  const World& mine = world();
  py::dict counts;
  for (const Zephly::StreamInfo& info : Zephly::streamTable) {
    counts[py::str(info.name.data(), info.name.size())] =
        mine.device.counts(info.stream).samplesSent;
  }
  return counts;
}

py::dict SimulatedStrap::repetitionsDone() const {
  const World& mine = world();
  const Zephly::Repetitions done = mine.strap.repetitionsDone(mine.device.strapTime());
  py::dict counts;
  counts["pushUps"] = done.pushUps;
  counts["sitUps"] = done.sitUps;
  counts["jumps"] = done.jumps;
  return counts;
}

namespace {

void writeStandardError(const std::string& line) {
  const py::object stream = py::module_::import("sys").attr("stderr");
  if (!stream.is_none()) stream.attr("write")(line + "\n");
}

class Bluetooth final : public HostObject {
 public:
  Bluetooth(std::shared_ptr<Queue> queue, const std::string& adapter, const std::string& busAddress,
            const std::string& notifications, const std::optional<LineCallback>& report)
      : HostObject(std::move(queue)) {
    HostObject::queue()->requireThread();
    ::Zephly::bluez::Options options{.adapter = adapter, .busAddress = busAddress};
    if (notifications == "descriptors") {
      options.notifications = ::Zephly::bluez::Notifications::descriptors;
    } else if (notifications != "signals") {
      throw py::value_error("notifications must be 'signals' or 'descriptors', not '" +
                            notifications + "'");
    }
    options.releaseOn.clear();  // signals are Python's
    options.report = [weak = std::weak_ptr(HostObject::queue()),
                      listener = report ? PythonReference(*report)
                                        : PythonReference()](std::string_view line) {
      const auto living = weak.lock();
      if (!living) return;
      living->call([listener, text = std::string(line)] {
        listener ? static_cast<void>(listener.get()(text)) : writeStandardError(text);
      });
    };
    const auto bluetooth = std::make_shared<::Zephly::bluez::Bluetooth>(
        HostObject::queue()->mainQueue(), std::move(options));
    setWorld(bluetooth, bluetooth.get());
  }
};

}  // namespace

void bindHosts(py::module_& module) {
  py::class_<HostObject, std::shared_ptr<HostObject>>(module, "Host",
                                                      "Where a session finds straps.")
      .def("close", &HostObject::close,
           "Switches the host off. From this call on no events of its sessions are reported, also "
           "when a callback closes it. RuntimeError when another thread runs the queue.")
      .def_property_readonly("closed", &HostObject::closed, "Whether close() was called.");

  py::class_<SimulatedStrap, HostObject, std::shared_ptr<SimulatedStrap>>(
      module, "SimulatedStrap",
      R"(A radio and a strap inside the process, worn by a person made of software.

One seed gives the same samples again. `speed` is virtual time over real time; with None the clock stands until
advance() steps it. `plan` is 'standard' (exercises, lost electrodes, a lost link) or 'quiet' (at rest).)")
      .def(py::init<std::shared_ptr<Queue>, Integer, std::optional<double>, std::string>(),
           py::arg("queue").none(false), py::kw_only(), py::arg("seed") = 1, py::arg("speed") = 1.0,
           py::arg("plan") = "standard")
      .def("advance", &SimulatedStrap::advance, py::arg("seconds"),
           "Steps the clock by that many seconds as fast as the machine goes. Callbacks are called "
           "in the meantime.")
      .def("strapTime", &SimulatedStrap::strapTime,
           "Seconds of the strap's time since it was switched on.")
      .def("samplesSent", &SimulatedStrap::samplesSent,
           "How many samples of each stream the strap has sent.")
      .def("repetitionsDone", &SimulatedStrap::repetitionsDone,
           "What the wearer has done, to compare with the callbacks.");

  py::class_<Bluetooth, HostObject, std::shared_ptr<Bluetooth>>(
      module, "Bluetooth", R"(The Bluetooth of a Linux machine, by BlueZ.

`adapter` is a name ('hci0') or an address, '' the first one that is powered; `busAddress` a D-Bus address, '' the
system bus; `notifications` 'signals' or 'descriptors'. `report(line)` gets a line for people whenever the state of the
radio changes; without one the lines go to sys.stderr.)")
      .def(py::init<std::shared_ptr<Queue>, std::string, std::string, std::string,
                    std::optional<LineCallback>>(),
           py::arg("queue").none(false), py::kw_only(), py::arg("adapter") = "",
           py::arg("busAddress") = "", py::arg("notifications") = "signals",
           py::arg("report") = py::none());
}

}  // namespace zephly_python
