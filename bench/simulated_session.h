// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session connected to a device of the simulated radio.
///
///   SimulatedSession session;
///   session.device().notify(ecgCharacteristicUUID(), bytes);
///   session.scheduler().advance(0s);
///
/// A session is never freed: it and its central manager own each other. Create few.

#include <hosts/simulated/radio.h>
#include <zephly/session/zephly.h>

#include <bench/counting_application.h>
#include <bench/null_buffer.h>

#include <cstdint>
#include <memory>

namespace bench {

class SimulatedSession {
 public:
  SimulatedSession();
  SimulatedSession(const SimulatedSession&) = delete;
  SimulatedSession& operator=(const SimulatedSession&) = delete;

  Zephly::simulated::Device& device() { return device_; }
  Zephly::simulated::Scheduler& scheduler() { return scheduler_; }
  /// The calls that the application received.
  std::uint64_t calls() const { return application_->calls; }

 private:
  SilentOutput silent_;
  Zephly::simulated::Scheduler scheduler_;
  Zephly::simulated::Radio radio_{scheduler_};
  Zephly::simulated::Device& device_;
  std::shared_ptr<CountingApplication> application_ = std::make_shared<CountingApplication>();
  std::shared_ptr<Zephly::Zephly> session_;
};

}  // namespace bench
