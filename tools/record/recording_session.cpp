#include <tools/record/recording_session.h>

#include <capture/text.h>
#include <tools/common/command.h>
#include <tools/common/version_text.h>
#include <tools/inspect/contents_text.h>
#include <zephly/session/zephly.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <iostream>
#include <utility>
#include <variant>

namespace Zephly::record {

namespace {

using inspect::counted;

constexpr std::chrono::seconds refreshInterval{1};

capture::Preamble preambleOf(const watch::Source& source, const Options& options) {
  return {.program = tools::programName(),
          .source = source.title(),
          .simulated = options.source.simulated,
          .began = capture::systemTime()};
}

// What is told of a record while it is written; empty for most.
std::string eventText(const capture::Record& record) {
  const auto reason = [](const capture::ErrorText& error) {
    return error ? ": " + capture::printable(*error) : std::string();
  };
  if (std::holds_alternative<capture::Connected>(record.what)) return "connected";
  if (const auto* lost = std::get_if<capture::Disconnected>(&record.what)) {
    return "link lost" + reason(lost->error);
  }
  if (const auto* failed = std::get_if<capture::FailedToConnect>(&record.what)) {
    return "connection failed" + reason(failed->error);
  }
  return {};
}

}  // namespace

RecordingSession::RecordingSession(const Options& options)
    : options_(options),
      output_(STDOUT_FILENO),
      progress_(output_, ::isatty(STDOUT_FILENO) != 0),
      source_(watch::makeSource(
          queue_, options.source,
          [this](std::string_view line) { progress_.line(capture::printable(line)); },
          [this] { end(); })),
      writer_(options.file, preambleOf(*source_, options), {.overwrite = options.overwrite}),
      tap_({.now = [this] { return now(); },
            .sink = [this](const capture::Record& record) { take(record); }}),
      // Nobody looks at the samples; a session needs somebody to tell them to.
      receiver_(
          std::make_shared<watch::Receiver>([this] { return now(); }, [](const watch::Event&) {})),
      catcher_([](std::string_view) {}) {}

int RecordingSession::run() {
  const auto session = ::Zephly::Zephly::init(receiver_);
  session->startWorkoutDetection(receiver_);
  watchSignals();
  progress_.line("Recording the " + source_->title() + " to " +
                 capture::printable(options_.file.string()));
  source_->start();
  refresh();
  queue_.run();

  const watch::SourceReport report = source_->finish();
  tap_.end();
  static_cast<void>(writer_.close());
  checkWritten();
  contents_.finish();
  progress_.line("Recorded " + capture::clockText(contents_.duration()) + ": " +
                 counted(writer_.records(), "record") + ", " + counted(writer_.bytes(), "byte"));
  output_.write(inspect::contentsText(contents_));
  output_.finish();

  const auto complaints = complaintsAbout(report);
  for (const std::string& complaint : complaints) {
    std::cerr << "zephly record: " << complaint << '\n';
  }
  return complaints.empty() && !failureTold_ ? tools::exitDone : tools::exitFailed;
}

// What was on its way in the end arrives at the end, however far a simulation has run meanwhile.
simulator::StrapTime RecordingSession::now() const { return ended_.value_or(source_->now()); }

void RecordingSession::end() {
  ended_ = now();
  queue_.stop();
}

void RecordingSession::take(const capture::Record& record) {
  if (writer_.append(record)) contents_.take(record);
  checkWritten();
  tell(record);
}

void RecordingSession::tell(const capture::Record& record) {
  const std::string text = eventText(record);
  if (text.empty()) return;
  progress_.line(capture::clockText(record.stamp.monotonic) + " " + text);
}

void RecordingSession::checkWritten() {
  if (failureTold_) return;
  const auto failure = writer_.error();
  if (!failure) return;
  failureTold_ = true;
  progress_.end();
  std::cerr << "zephly record: " << *failure << " (" << counted(writer_.records(), "record")
            << " written; the session goes on without recording)" << std::endl;
}

void RecordingSession::refresh() {
  checkWritten();
  const std::string link = contents_.connected() ? "connected" : "not connected";
  progress_.status(capture::clockText(now()) + "  " + link + ", " +
                   counted(writer_.records(), "record") + ", " + counted(writer_.bytes(), "byte"));
  output_.flush();
  refreshTimer_ = queue_.after(refreshInterval, [this] { refresh(); });
}

void RecordingSession::watchSignals() {
  endSignals_ = queue_.onSignal({SIGINT, SIGTERM, SIGHUP}, [this](int) { end(); });
}

// A simulated strap tells what it has sent: all of it must be in the file.
std::vector<std::string> RecordingSession::complaintsAbout(const watch::SourceReport& report) {
  std::vector<std::string> complaints;
  if (report.strap && !failureTold_) {
    for (const simulator::Stream stream : simulator::allStreams) {
      const std::uint64_t sent = report.strap->streams[static_cast<std::size_t>(stream)].sent;
      const std::uint64_t recorded = contents_.of(stream).samples;
      if (sent == recorded) continue;
      complaints.push_back("recorded " + std::to_string(recorded) + " of " + std::to_string(sent) +
                           " samples of the stream " + std::string(simulator::streamName(stream)));
    }
  }
  if (output_.state() == tools::Output::State::failed) {
    complaints.push_back("standard output: " + output_.error());
  }
  return complaints;
}

}  // namespace Zephly::record
