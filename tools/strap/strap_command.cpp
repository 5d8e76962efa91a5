// SPDX-License-Identifier: MIT
#include <tools/strap/strap_command.h>

#include <hosts/main_queue/main_queue.h>
#include <simulator/strap.h>
#include <simulator/transmitter.h>
#include <tools/common/end_signals.h>
#include <tools/common/output.h>
#include <tools/strap/link_losses.h>
#include <tools/strap/options.h>
#include <tools/strap/pacing.h>
#include <tools/strap/presence.h>
#include <tools/strap/report.h>
#include <zephly/protocol/streams.h>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zephly::peripheral {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

simulator::StrapOptions strapOptions(const Options& options) {
  simulator::StrapOptions made;
  made.seed = options.seed;
  made.plan =
      options.training ? simulator::TrainingPlan::standard() : simulator::TrainingPlan::quiet();
  if (options.recording) {
    made.recording = std::make_shared<const simulator::Recording>(
        simulator::Recording::load(*options.recording, *options.rowsPerSecond));
  }
  return made;
}

PresenceOptions presenceOptions(const Options& options) {
  PresenceOptions made;
  made.bluetooth = options.bluetooth;
  made.name = options.name;
  made.setAlias = options.setAlias;
  return made;
}

// Everything runs on the queue, from three timers, the signals and the callbacks of presence_:
//
//   turnTimer_  sends the frames that are due, and is set to the next one by pacing_. It is not set
//               while nothing can be sent; onSubscription() then starts the turns again.
//   lossTimer_  the next planned loss of the link
//   rateTimer_  the counts of the last second, at each whole second of strap time
//
// end() may be called from any of them, and more than once. It leaves bluetoothd and stops the
// queue; run() then prints the totals.
class Program final : private PresenceListener, private simulator::Carrier {
 public:
  explicit Program(const Options& options)
      : options_(options),
        strap_(strapOptions(options)),
        presence_(queue_, presenceOptions(options), *this),
        transmitter_(strap_, *this),
        start_(Clock::now()),
        pacing_(transmitter_, start_),
        losses_(options.lossTimes, options.absence.value_or(Options::usualAbsence), strap_.plan()) {
  }

  int run() {
    endSignals_ = tools::watchEndSignals(queue_, [this] { end(); });
    lossSignal_ = queue_.onSignal(
        {SIGUSR1}, [this](int) { loseLink(options_.absence.value_or(Options::usualAbsence)); });
    if (options_.duration) endTimer_ = queue_.after(*options_.duration, [this] { end(); });
    turn();
    planLoss(-1ns);  // with one at time 0
    planRates();
    queue_.run();
    if (!fatal_.empty()) throw std::runtime_error(fatal_);
    return finish();
  }

 private:
  bool isSubscribed(Stream stream) const override { return presence_.isSubscribed(stream); }

  // The line is made first, because presence_ takes the bytes, and printed only for a sent frame.
  bool carry(simulator::Frame frame) override {
    std::string line;
    if (options_.frames) line = frameText(Clock::now().time_since_epoch(), frame) + "\n";
    if (!presence_.carry(std::move(frame))) return false;
    output_.write(line);
    return true;
  }

  void onMessage(std::string_view line) override {
    output_.write(std::string(line) + "\n");
    flush();
  }

  void onSubscription(Stream stream, bool subscribed) override {
    onMessage((subscribed ? "subscribed " : "unsubscribed ") +
              std::string(streamInfo(stream).name));
    if (transmitter_.subscriptionsChanged(now())) turn();
  }

  void onCentral(const std::string& name, bool connected) override {
    if (connected) ++connections_;
    onMessage((connected ? "connected " : "disconnected ") + name);
  }

  void onFatal(const std::string& reason) override {
    fatal_ = "no D-Bus bus (" + reason + "); it comes with the packages dbus and bluez";
    queue_.stop();
  }

  StrapTime now() const { return pacing_.strapTime(Clock::now()); }

  void turn() {
    const Pacing::Turn turn = pacing_.turn(Clock::now());
    if (turn.skipped > 0) {
      skipped_ += turn.skipped;
      onMessage("skipped " + std::to_string(turn.skipped) + " frames: the program was held up");
    }
    flush();
    if (strap_.finished()) {
      onMessage("the recording has been played");
      return end();
    }
    if (turn.wait) turnTimer_ = queue_.after(*turn.wait, [this] { this->turn(); });
  }

  // Plans the first loss later than `after`. Losses that are more than a second overdue, because
  // the program was stopped, are skipped.
  void planLoss(StrapTime after) {
    const auto loss = losses_.next(after);
    if (!loss) return;
    lossTimer_ = queue_.after(loss->time - now(), [this, loss = *loss] {
      loseLink(loss.absence);
      planLoss(std::max(loss.time, now() - 1s));
    });
  }

  void loseLink(StrapTime absence) {
    onMessage("link loss, away for " + secondsText(absence) + " s");
    ++lossCount_;
    presence_.loseLink(absence);
  }

  void planRates() {
    rateTimer_ = queue_.after(1s - now() % 1s, [this] {
      reportRates();
      planRates();
    });
  }

  void reportRates() {
    const FrameCounts counts = framesSent(transmitter_);
    FrameCounts news{};  // since the last report
    std::transform(counts.begin(), counts.end(), reportedCounts_.begin(), news.begin(),
                   std::minus<>());
    reportedCounts_ = counts;
    const bool subscribed = std::any_of(allStreams.begin(), allStreams.end(),
                                        [this](Stream stream) { return isSubscribed(stream); });
    if (subscribed || news != FrameCounts{}) onMessage("sent " + countsText(news));
  }

  // The reader has closed the pipe, or the disk is full: the strap ends. finish() reports an error.
  void flush() {
    output_.flush();
    if (output_.state() != tools::Output::State::open) end();
  }

  void end() {
    presence_.leave();
    queue_.stop();
  }

  int finish() {
    onMessage("end after " + secondsText(now()) + " s: sent " +
              countsText(framesSent(transmitter_)) + "; not subscribed " +
              std::to_string(transmitter_.totals().framesUnsubscribed) + ", skipped " +
              std::to_string(skipped_) + ", connections " + std::to_string(connections_) +
              ", link losses " + std::to_string(lossCount_));
    output_.finish(1s);
    if (const auto failure = output_.failure()) {
      throw std::runtime_error("standard output: " + *failure);
    }
    return tools::exitDone;
  }

  const Options& options_;
  main_queue::MainQueue queue_;
  tools::Output output_{STDOUT_FILENO};
  simulator::Strap strap_;
  Presence presence_;  // calls back by turns of the queue only, so after the construction
  simulator::Transmitter transmitter_;
  Clock::time_point start_;
  Pacing pacing_;
  LinkLosses losses_;
  FrameCounts reportedCounts_{};
  std::uint64_t skipped_ = 0;
  std::uint64_t connections_ = 0;
  std::uint64_t lossCount_ = 0;
  std::string fatal_;
  main_queue::Timer turnTimer_;
  main_queue::Timer lossTimer_;
  main_queue::Timer rateTimer_;
  main_queue::Timer endTimer_;
  std::vector<main_queue::SignalWatch> endSignals_;
  main_queue::SignalWatch lossSignal_;
};

}  // namespace

tools::Command addStrapCommand(CLI::App& program) {
  CLI::App* command =
      program.add_subcommand("strap", "Act as a strap through a Bluetooth adapter of this machine");
  command->footer(
      "Examples:\n"
      "  zephly strap                              a wearer at rest\n"
      "  zephly strap --training --duration 10m    with exercises, link losses and electrodes off\n"
      "\n"
      "Needs bluetoothd and a powered adapter; waits for them. Ctrl-C ends it. SIGUSR1 makes it "
      "lose the\n"
      "link.\n"
      "Exit code: 0 success; 1 no D-Bus bus, or recording unusable; 2 wrong options.");
  const auto options = std::make_shared<Options>();
  addOptions(*command, *options);
  return {command, [options] {
            checkTogether(*options);
            return Program(*options).run();
          }};
}

}  // namespace Zephly::peripheral
