// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The hosts as Python sees them: a radio and a strap inside the process, and Linux's own
/// Bluetooth.
///
///     auto host = std::make_shared<SimulatedStrap>(queue, 1, 10.0, "standard");
///     auto session = Zephly::Zephly::init(application);   // after host->use()

#include <bindings/python/src/arrays.h>
#include <bindings/python/src/main_queue.h>

#include <zephly/platform/host.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zephly_python {

/// One host on one queue. With the GIL.
class HostObject {
 public:
  HostObject(const HostObject&) = delete;
  HostObject& operator=(const HostObject&) = delete;
  virtual ~HostObject() { switchOff(); }

  /// Makes it the host in use; std::invalid_argument (ValueError) when it is closed.
  void use();
  /// Switches it off: no more events of its sessions are reported, from this call on, also inside a
  /// callback. Again, it does nothing. std::runtime_error when another thread runs the queue.
  void close();
  bool closed() const { return !*open_; }
  /// Becomes false when the host is closed. Outlives it. Guarded by the GIL.
  std::shared_ptr<const bool> open() const { return open_; }
  const std::shared_ptr<Queue>& queue() const { return queue_; }
  /// The time of its sessions, which does not decrease. May be called after the host has closed.
  virtual std::function<std::chrono::nanoseconds()> clock() const;

 protected:
  explicit HostObject(std::shared_ptr<Queue> queue) : queue_(std::move(queue)) {}
  /// `world` owns `host` and all that it needs.
  void setWorld(std::shared_ptr<void> world, Zephly::Host* host);
  void requireOpen() const;

 private:
  void switchOff();

  std::shared_ptr<Queue> queue_;
  std::shared_ptr<bool> open_ = std::make_shared<bool>(false);
  std::shared_ptr<void> world_;
  Zephly::Host* host_ = nullptr;
};

/// A radio with one strap in its reach and a wearer made of software.
class SimulatedStrap final : public HostObject {
 public:
  /// @param speed  virtual time over real time; empty: the clock is stepped by advance().
  SimulatedStrap(std::shared_ptr<Queue> queue, const Integer& seed, std::optional<double> speed,
                 const std::string& plan);

  void advance(double seconds);
  /// Seconds since the strap was switched on.
  double strapTime() const;
  py::dict samplesSent() const;
  py::dict repetitionsDone() const;
  /// The strap's time.
  std::function<std::chrono::nanoseconds()> clock() const override;

 private:
  struct World;
  World& world() const;

  std::weak_ptr<World> world_;
};

/// Adds Host, SimulatedStrap and Bluetooth.
void bindHosts(py::module_& module);

}  // namespace zephly_python
