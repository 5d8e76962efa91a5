// SPDX-License-Identifier: MIT
#include <tools/record/recording_session.h>

#include <capture/text.h>
#include <tools/common/command.h>
#include <tools/common/terminal.h>
#include <tools/common/version_text.h>
#include <tools/inspect/contents_text.h>
#include <tools/watch/summary.h>

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <utility>
#include <variant>

namespace Zephly::record {

namespace {

using inspect::counted;

constexpr std::chrono::seconds refreshInterval{1};
// Attempts to continue a recording in another file.
constexpr std::uint64_t refreshesPerAttempt = 2;

capture::Preamble preambleOf(const watch::Source& source, const Options& options) {
  return {.program = tools::programName(),
          .source = source.title(),
          .simulated = options.source.simulated,
          .began = capture::systemTime()};
}

// The line about a record while it is written; empty for most records.
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
      progress_(output_, tools::isDrawableTerminal(STDOUT_FILENO)),
      runner_("record", queue_, options.source, *this, refreshInterval),
      writer_(
          options.file, preambleOf(runner_.source(), options),
          {.writer = {.overwrite = options.overwrite},
           // The contents have only what is in a file, so that they agree with `zephly inspect`.
           .written = [this](const capture::Record& record) { contents_.take(record); }}),
      // Frames in flight at the end are delivered by finish() and get the time of the end.
      tap_({.now = [this] { return runner_.now(); },
            .sink = [this](const capture::Record& record) { take(record); }}) {}

int RecordingSession::run() {
  runner_.run();
  // The order: finish() still delivers frames through the tap; tap_.end() writes the Ended record;
  // only then is the file closed and its last error known.
  const watch::SourceReport& report = runner_.finish();
  tap_.end();
  const auto failure = writer_.close();
  reportFiles();
  contents_.finish();
  progress_.line("Recorded " + capture::clockText(contents_.duration()) + ": " + recordedText());
  if (!hasCapture()) {
    progress_.line(capture::printable(options_.file.string()) + " was not replaced.");
  }
  output_.write(inspect::contentsText(contents_));
  output_.finish();

  std::vector<std::string> complaints = complaintsAbout(report);
  if (failure) complaints.insert(complaints.begin(), *failure);
  return runner_.exitCode(complaints);
}

void RecordingSession::onHostLine(std::string_view line) {
  progress_.line(capture::printable(line));
}

void RecordingSession::onReady() {
  progress_.line("Recording the " + runner_.source().title() + " to " +
                 capture::printable(options_.file.string()));
}

void RecordingSession::onRefresh() {
  if (++refreshes_ % refreshesPerAttempt == 0) writer_.tryToContinue();
  reportFiles();
  const std::string state = writer_.isWaiting()     ? "NOT RECORDING"
                            : contents_.connected() ? "connected"
                                                    : "not connected";
  progress_.status(capture::clockText(runner_.now()) + "  " + state + ", " + recordedText());
  output_.flush();
}

void RecordingSession::take(const capture::Record& record) {
  writer_.append(record);
  reportFiles();
  reportEvent(record);
}

std::string RecordingSession::recordedText() const {
  const std::size_t files = writer_.files().size();
  return counted(writer_.records(), "record") + ", " + counted(writer_.bytes(), "byte") +
         (files > 1 ? " in " + counted(files, "file") : "");
}

void RecordingSession::reportEvent(const capture::Record& record) {
  const std::string text = eventText(record);
  if (text.empty()) return;
  progress_.line(capture::clockText(record.stamp.monotonic) + " " + text);
}

// Reports once that nothing can be written, and each file that continues the recording.
void RecordingSession::reportFiles() {
  if (writer_.isWaiting() && !reportedWaiting_) {
    complain(writer_.trouble() + "; recorded until " + capture::clockText(writer_.recordedUntil()) +
             ", trying to continue in another file");
  }
  reportedWaiting_ = writer_.isWaiting();
  while (reportedFiles_ < writer_.files().size()) {
    const std::uint64_t lost = writer_.lost() - std::exchange(reportedLost_, writer_.lost());
    complain("the recording continues in " +
             capture::printable(writer_.files()[reportedFiles_].string()) + ", " +
             (lost == 0 ? "nothing was lost" : counted(lost, "record") + " lost"));
    ++reportedFiles_;
  }
}

void RecordingSession::complain(const std::string& line) {
  progress_.end();
  std::cerr << "zephly record: " << line << std::endl;
}

// A simulated strap counts what it has sent: all of it must be in the file.
std::vector<std::string> RecordingSession::complaintsAbout(const watch::SourceReport& report) {
  std::vector<std::string> complaints;
  if (contents_.connectionCount() == 0) complaints.emplace_back(watch::noStrapConnected);
  if (options_.requireAll) {
    for (const Stream stream : allStreams) {
      if (contents_.of(stream).samples > 0) continue;
      complaints.push_back("never recorded: " + std::string(streamInfo(stream).title));
    }
  }
  if (report.strap && writer_.lost() == 0) {
    for (const Stream stream : allStreams) {
      const std::uint64_t sent = report.strap->streams[stream].sent;
      const std::uint64_t recorded = contents_.of(stream).samples;
      if (sent == recorded) continue;
      complaints.push_back("recorded " + std::to_string(recorded) + " of " + std::to_string(sent) +
                           " samples of the stream " + std::string(streamInfo(stream).name));
    }
  }
  if (const auto failure = output_.failure()) {
    complaints.push_back("standard output: " + *failure);
  }
  return complaints;
}

}  // namespace Zephly::record
