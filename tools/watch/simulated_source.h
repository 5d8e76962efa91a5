// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The source for --simulated: a simulated strap and other simulated devices, in real time unless a
/// speed is given.
///
///   MainQueue queue;
///   SimulatedSource source(queue, {.seed = 7, .speed = 10, .duration = 30s}, [&] { queue.stop();
///   }); auto session = ::Zephly::Zephly::init(receiver);   // the source is the host in use
///   source.start();
///   queue.run();
///   const SourceReport report = source.finish();
///
/// The strap loses its link at the times of its training plan.

#include <hosts/main_queue/main_queue.h>
#include <hosts/simulated/pacer.h>
#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <tools/watch/source.h>
#include <zephly/protocol/strap_time.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Zephly::watch {

struct SimulatedOptions {
  std::uint64_t seed = 1;
  double speed = 1;                                  ///< > 0, finite
  std::optional<StrapTime> duration = std::nullopt;  ///< of strap time
  std::shared_ptr<const simulator::Recording> recording =
      nullptr;                     ///< null: everything is modelled
  std::string recordingName = {};  ///< for people
};

class SimulatedSource final : public Source {
 public:
  /// `ended` is called once, on the queue, when the duration is over or the recording has been
  /// played: the strap then sends nothing more.
  SimulatedSource(main_queue::MainQueue& queue, SimulatedOptions options,
                  std::function<void()> ended);

  std::string title() const override;
  std::string pace() const override;

  using Source::start;
  void start(std::function<bool()> held) override;
  /// Strap time, which is the session's time too.
  StrapTime now() const override { return over_.value_or(scheduler_.now()); }

  /// Stops the strap if it has not ended, delivers the frames in transit, and returns the strap's
  /// report.
  SourceReport finish() override;

 private:
  void watchRecording();
  void end();
  void stopSending();

  main_queue::MainQueue& queue_;
  SimulatedOptions options_;
  std::function<void()> ended_;
  simulated::Scheduler scheduler_;
  simulated::Radio radio_;
  simulator::Strap strap_;
  std::optional<simulated::StrapDevice> device_;
  std::optional<simulated::Pacer> pacer_;
  std::optional<StrapTime> over_;  // when it ended
  SourceReport report_;
};

}  // namespace Zephly::watch
