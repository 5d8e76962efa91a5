#pragma once
/// @file
/// One session with workout detection that is written to a capture while it runs.
///
///   RecordingSession session(options);
///   const int exitCode = session.run();  // until its duration, SIGINT, SIGTERM or SIGHUP

#include <capture/record.h>
#include <capture/tap_host.h>
#include <capture/writer.h>
#include <hosts/main_queue/main_queue.h>
#include <tools/common/output.h>
#include <tools/inspect/contents.h>
#include <tools/record/options.h>
#include <tools/record/progress.h>
#include <tools/watch/diagnostics_catcher.h>
#include <tools/watch/receiver.h>
#include <tools/watch/source.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::record {

class RecordingSession {
 public:
  /// Creates the file. Throws std::exception with one line when there is no such file to be had or
  /// the source cannot be used.
  explicit RecordingSession(const Options& options);

  /// Runs the session to its end; returns the exit code. Once.
  int run();

 private:
  simulator::StrapTime now() const;
  void end();
  void take(const capture::Record& record);
  void tell(const capture::Record& record);
  void refresh();
  void watchSignals();
  void checkWritten();
  std::vector<std::string> complaintsAbout(const watch::SourceReport& report);

  const Options& options_;
  main_queue::MainQueue queue_;
  tools::Output output_;
  Progress progress_;
  inspect::Contents contents_;
  bool failureTold_ = false;
  std::optional<simulator::StrapTime> ended_;
  std::unique_ptr<watch::Source> source_;
  capture::Writer writer_;
  capture::TapHost tap_;
  std::shared_ptr<watch::Receiver> receiver_;
  watch::DiagnosticsCatcher catcher_;
  main_queue::Timer refreshTimer_;
  main_queue::SignalWatch endSignals_;
};

}  // namespace Zephly::record
