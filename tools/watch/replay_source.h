// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Plays a capture: the kit receives the same calls as in the recorded session, in the same order
/// and with the same processor clock.
///
///   ReplaySource source(queue, {.file = "walk.zcap", .speed = 4}, [&] { queue.stop(); });
///   auto session = ::Zephly::Zephly::init(receiver);   // the source is the host in use
///   source.start();
///   queue.run();
///   const SourceReport report = source.finish();       // with what was wrong with the capture
///
/// The file is read while it is played, one record ahead. Damage ends the replay; what
/// precedes it has been played.

#include <capture/record.h>
#include <hosts/main_queue/main_queue.h>
#include <hosts/replay/record_order.h>
#include <hosts/replay/replay_host.h>
#include <hosts/simulated/pacer.h>
#include <hosts/simulated/scheduler.h>
#include <tools/watch/source.h>
#include <zephly/protocol/strap_time.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace Zephly::watch {

struct ReplayOptions {
  std::filesystem::path file;
  /// Recorded time over wall time, > 0, finite; empty: as fast as the machine goes.
  std::optional<double> speed = 1;
  /// What was recorded before this is played as fast as the machine goes: link, subscriptions,
  /// contact and counts are those of that moment. A complaint when the capture ends before it.
  StrapTime from = {};
  std::optional<StrapTime> duration = std::nullopt;  ///< of recorded time, after `from`
};

class ReplaySource final : public Source {
 public:
  /// Throws capture::CaptureError when the file is not a capture. `ended` is called once, on the
  /// queue, at the end of the capture or of the duration.
  ReplaySource(main_queue::MainQueue& queue, ReplayOptions options, std::function<void()> ended);

  std::string title() const override;
  std::string pace() const override;

  using Source::start;
  void start(std::function<bool()> held) override;
  /// Recorded time of the record that is being delivered.
  StrapTime now() const override { return over_.value_or(scheduler_.now()); }

  SourceReport finish() override;

 private:
  void skip(std::function<bool()> held);
  void pace(std::function<bool()> held);
  void readOn();
  void play(const capture::Record& record);
  void complain(const std::string& line);
  void end();

  main_queue::MainQueue& queue_;
  const ReplayOptions options_;
  std::function<void()> ended_;
  replay::RecordOrder records_;
  replay::ReplayHost host_;
  simulated::Scheduler scheduler_;
  std::optional<simulated::Pacer> pacer_;
  bool arrived_ = false;           // at ReplayOptions::from
  main_queue::Timer arriving_;     // replaces the pacer there
  std::optional<StrapTime> over_;  // when it ended
  SourceReport report_;
};

}  // namespace Zephly::watch
