// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One session with workout detection that is written to a capture while it runs.
///
///   RecordingSession session(options);
///   const int exitCode = session.run();  // until its duration, SIGINT, SIGTERM or SIGHUP

#include <capture/chain_writer.h>
#include <capture/record.h>
#include <capture/tap_host.h>
#include <hosts/main_queue/main_queue.h>
#include <tools/common/output.h>
#include <tools/common/progress.h>
#include <tools/inspect/contents.h>
#include <tools/record/options.h>
#include <tools/watch/session_runner.h>

#include <string>
#include <string_view>
#include <vector>

namespace Zephly::record {

class RecordingSession final : private watch::SessionHandler {
 public:
  /// Creates the file. Throws std::exception with one line when the file cannot be created or the
  /// source cannot be used.
  explicit RecordingSession(const Options& options);

  /// Runs the session to its end; returns the exit code. Once.
  int run();
  /// After run(): whether there is a new capture under its name. Not when no strap was connected
  /// and an old one was there.
  bool hasCapture() const { return !writer_.hasKeptOldFile(); }

 private:
  // The tap records what the session gets; the events themselves are not used.
  void onEvent(const watch::Event& /*event*/) override {}
  void onHostLine(std::string_view line) override;
  void onReady() override;
  void onRefresh() override;
  void onSourceEnd() override { runner_.end(); }
  void onEndSignal() override { runner_.end(); }

  void take(const capture::Record& record);
  void reportEvent(const capture::Record& record);
  void reportFiles();
  void complain(const std::string& line);
  std::string recordedText() const;
  std::vector<std::string> complaintsAbout(const watch::SourceReport& report);

  const Options& options_;
  main_queue::MainQueue queue_;
  tools::Output output_;
  tools::Progress progress_;
  inspect::Contents contents_;
  bool reportedWaiting_ = false;
  std::size_t reportedFiles_ = 1;
  std::uint64_t reportedLost_ = 0;
  std::uint64_t refreshes_ = 0;
  // The tap wraps the host in use, which the runner sets.
  watch::SessionRunner runner_;
  capture::ChainWriter writer_;
  capture::TapHost tap_;
};

}  // namespace Zephly::record
