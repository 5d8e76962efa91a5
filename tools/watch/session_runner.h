// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs one session with workout detection on a source, from its start to its exit code. The
/// commands monitor, replay, view and record differ only in their handlers.
///
///   class Printer final : private SessionHandler {
///     int run() {
///       runner_.run();
///       const SourceReport report = runner_.finish();
///       return runner_.exitCode(report.complaints);
///     }
///     void onEvent(const Event& event) override { ... }
///     SessionRunner runner_{"print", queue_, options_, *this, 100ms};
///   };

#include <hosts/foundation/observation.h>
#include <hosts/main_queue/main_queue.h>
#include <hosts/vitals/session_vitals.h>
#include <tools/watch/event.h>
#include <tools/watch/receiver.h>
#include <tools/watch/source.h>
#include <tools/watch/source_options.h>
#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <memory>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly {
class Zephly;
}

namespace Zephly::watch {

/// All of it is called on the main queue, between run() and the end of finish().
class SessionHandler {
 public:
  virtual ~SessionHandler() = default;

  /// Everything that the session reports, in order.
  virtual void onEvent(const Event& event) = 0;
  /// One line of the host for people, without its end; the event for it follows.
  virtual void onHostLine(std::string_view /*line*/) {}
  /// The session exists; the source starts after this.
  virtual void onReady() {}
  /// Once after the start, then at every refresh interval.
  virtual void onRefresh() = 0;
  /// Whether a source that can wait shall wait. Asked again after a few milliseconds.
  virtual bool holdsSource() { return false; }
  /// The source has ended. Called from inside the source: finish() must wait for a later turn of
  /// the queue.
  virtual void onSourceEnd() = 0;
  /// SIGINT, SIGTERM or SIGHUP, also one that came after the construction and before run().
  virtual void onEndSignal() = 0;

 protected:
  SessionHandler() = default;
  SessionHandler(const SessionHandler&) = default;
  SessionHandler& operator=(const SessionHandler&) = default;
};

/// Its order: the constructor makes the source's host the one in use, run() creates the session and
/// runs the queue until end(), finish() lets the source deliver what is in flight and closes it.
class SessionRunner {
 public:
  /// `command` prefixes the messages of exitCode(). `handler` and `queue` must outlive it; what the
  /// handler's functions use must be declared before it. `console` receives the lines that the kit
  /// writes on its console (null: they are not formatted). Throws as makeSource() does.
  SessionRunner(std::string command, main_queue::MainQueue& queue, const SourceOptions& options,
                SessionHandler& handler, std::chrono::milliseconds refreshInterval,
                std::streambuf* console = nullptr);
  /// Makes events of beats, breaths and seconds of vitals, too; the last ones come in finish(). To
  /// be called before run(), and not where a capture::TapHost is in use.
  void measureVitals();
  SessionRunner(const SessionRunner&) = delete;
  SessionRunner& operator=(const SessionRunner&) = delete;
  ~SessionRunner();

  const Source& source() const { return *source_; }
  /// Time since the start; constant after stopClock().
  StrapTime now() const { return ended_.value_or(source_->now()); }

  /// Starts the session and runs the queue until end(). Once.
  void run();
  /// Events later than now are dropped.
  void stopClock();
  /// Stops the clock and the queue.
  void end();
  /// Stops the clock, ends the source and returns its report; later calls return the same one. Not
  /// from inside a callback of the session or the source.
  const SourceReport& finish();

  /// Writes the complaints on standard error, one line each; returns the exit code of the command.
  int exitCode(const std::vector<std::string>& complaints) const;

 private:
  void refresh();

  std::string command_;
  main_queue::MainQueue& queue_;
  SessionHandler& handler_;
  std::chrono::milliseconds refreshInterval_;
  // Before the source, and so before the handler opens its files: a signal must not end the program
  // while one of them is incomplete.
  std::vector<main_queue::SignalWatch> endSignals_;
  std::optional<StrapTime> ended_;
  std::optional<SourceReport> report_;
  std::unique_ptr<Source> source_;
  std::shared_ptr<Receiver> receiver_;
  // After the source, whose host it wraps.
  std::optional<hosts::SessionVitals> vitals_;
  std::shared_ptr<::Zephly::Zephly> session_;
  main_queue::Timer refreshTimer_;
  hosts::Observation observation_;
};

}  // namespace Zephly::watch
