// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Replaces a strap for a first application: the current host, a radio with one strap in range, in
/// real time.
///
///   Zephly::main_queue::MainQueue queue;
///   Zephly::simulated::SimulatedStrap strap(queue);
///   auto session = Zephly::Zephly::init(application);
///   queue.run();

#include <hosts/main_queue/main_queue.h>
#include <hosts/simulated/pacer.h>
#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <zephly/platform/export.h>

namespace Zephly::simulated {

/// One radio, one strap, one wearer; switched off when it is destroyed.
class ZEPHLY_EXPORT SimulatedStrap {
 public:
  /// On `queue`, which must outlive it, at `speed` times real time (see Pacer). Throws
  /// std::invalid_argument for a speed or a plan that cannot be.
  explicit SimulatedStrap(main_queue::MainQueue& queue, const simulator::StrapOptions& options = {},
                          double speed = 1);

  /// Where more devices can be added.
  Radio& radio() { return radio_; }
  /// The strap, and its counts of sent samples.
  const StrapDevice& device() const { return device_; }
  /// The simulated wearer, with the true values.
  const simulator::Strap& strap() const { return strap_; }

 private:
  Scheduler scheduler_;
  Radio radio_;
  simulator::Strap strap_;
  StrapDevice device_;
  Pacer pacer_;
};

}  // namespace Zephly::simulated
