// SPDX-License-Identifier: MIT
#include <tools/watch/summary.h>

#include <capture/text.h>
#include <tools/common/text_stream.h>

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <string_view>

namespace Zephly::watch {

namespace {

// "1 change", "2 changes"
std::string counted(std::uint64_t count, std::string_view thing) {
  return std::to_string(count) + " " + std::string(thing) + (count == 1 ? "" : "s");
}

void writeStreams(std::ostream& text, const Summary& summary) {
  text << "                                        longest gap\n"
          "  stream        delivered   per second  within a link\n";
  for (const StreamSummary& stream : summary.streams) {
    text << "  " << std::left << std::setw(11) << streamInfo(stream.stream).name << std::right
         << std::setw(12) << stream.delivered << std::setw(13)
         << rateText(stream.stream, stream.perSecond);
    if (stream.longestGap) {
      text << std::setw(13) << std::setprecision(3) << seconds(*stream.longestGap) << " s";
    }
    text << "\n";
  }
}

void writeStreamsWithStrap(std::ostream& text, const Summary& summary) {
  text << "  stream             sent   delivered        lost  not subscribed\n";
  for (const StreamSummary& stream : summary.streams) {
    text << "  " << std::left << std::setw(11) << streamInfo(stream.stream).name << std::right
         << std::setw(12) << stream.strap->sent << std::setw(12) << stream.delivered
         << std::setw(12) << *stream.lost() << std::setw(16) << stream.strap->notSubscribed << "\n";
  }
}

void writeRecording(std::ostream& text, const Summary& summary) {
  for (const StreamSummary& stream : summary.streams) {
    const auto& played = stream.strap->recording;
    if (!played) continue;
    text << "  recording    " << streamInfo(stream.stream).name << ": " << played->rows
         << " rows in, " << played->samples << " samples out, " << played->filled << " filled, "
         << played->saturated << " beyond the range\n";
  }
}

void writeRepetitions(std::ostream& text, const Summary& summary) {
  for (const Exercise exercise : allExercises) {
    text << "  " << std::left << std::setw(13) << std::string(exerciseName(exercise)) + "s"
         << std::right;
    if (summary.repetitionsDone) text << summary.repetitionsDone->of(exercise) << " done, ";
    text << summary.repetitionsCounted.of(exercise) << " counted\n";
  }
}

void writeLinkLosses(std::ostream& text, const Summary& summary) {
  for (const SessionModel::LinkLoss& loss : summary.linkLosses) {
    text << "  link lost    at " << capture::clockText(loss.time);
    if (loss.recovery) {
      text << " for " << std::setprecision(1) << seconds(*loss.recovery) << " s";
    } else {
      text << " to the end";
    }
    if (loss.reason) text << ": " << capture::printable(*loss.reason);
    text << "\n";
  }
}

// "71.3 /min (62.0 to 84.5), known for 55 of 60 s, "
void writeRate(std::ostream& text, const RateRange& rate, std::uint64_t seconds) {
  if (const auto mean = rate.mean()) {
    text << std::setprecision(1) << *mean << " /min (" << rate.low << " to " << rate.high
         << "), known for " << rate.seconds << " of " << seconds << " s, ";
  } else {
    text << "never known, ";
  }
}

// A session without vitals, in which no ECG or respiration arrived, says nothing about them.
void writeVitals(std::ostream& text, const VitalsCounts& counts) {
  if (counts.seconds == 0) return;
  using vitals::BeatClass;
  text << "  heart rate   ";
  writeRate(text, counts.heartRate, counts.seconds);
  text << counts.of(BeatClass::normal) << " normal, " << counts.of(BeatClass::ectopic)
       << " ectopic, " << counted(counts.of(BeatClass::artefact), "artefact") << "\n"
       << "  breathing    ";
  writeRate(text, counts.breathingRate, counts.seconds);
  text << counted(counts.breaths, "breath") << "\n";
}

}  // namespace

bool Summary::anythingLost() const {
  return std::any_of(streams.begin(), streams.end(),
                     [](const StreamSummary& stream) { return stream.lost().value_or(0) != 0; });
}

Summary summarize(const SourceReport& source, const SessionModel& received) {
  Summary summary;
  summary.duration = source.duration;
  for (const Stream stream : allStreams) {
    ArrivalMeter arrivals = received.arrivals(stream);
    arrivals.stop(source.duration);
    StreamSummary counts{.stream = stream, .delivered = received.received(stream)};
    counts.perSecond = arrivals.perSecond();
    counts.longestGap = arrivals.longestGap();
    if (source.strap) counts.strap = source.strap->streams[stream];
    summary.streams.push_back(counts);
  }
  if (source.strap) summary.repetitionsDone = source.strap->repetitionsDone;
  summary.repetitionsCounted = received.repetitions();
  summary.connections = received.connections();
  summary.disconnections = received.disconnections();
  summary.reconnections = received.reconnections();
  summary.linkLosses.assign(received.linkLosses().begin(), received.linkLosses().end());
  // The first report of a session is a state, not a change.
  summary.leadOffChanges = received.leadOffReports() > 0 ? received.leadOffReports() - 1 : 0;
  summary.neverArrived = received.neverArrived();
  summary.vitals = received.vitals();
  return summary;
}

std::string summaryText(const Summary& summary) {
  tools::TextStream text;
  text << "Session of " << std::fixed << std::setprecision(1) << seconds(summary.duration) << " s";
  const bool strapReports = summary.repetitionsDone.has_value();
  if (strapReports) {
    text << " of strap time\n";
    writeStreamsWithStrap(text, summary);
    writeRecording(text, summary);
  } else {
    text << "\n";
    writeStreams(text, summary);
  }
  writeRepetitions(text, summary);
  text << "  link         " << counted(summary.connections, "connection") << ", "
       << counted(summary.disconnections, "disconnection") << ", "
       << counted(summary.reconnections, "reconnection") << "\n";
  if (!strapReports) writeLinkLosses(text, summary);
  text << "  electrodes   " << counted(summary.leadOffChanges, "change") << " of contact\n";
  writeVitals(text, summary.vitals);
  return text.str();
}

std::vector<std::string> losses(const Summary& summary) {
  std::vector<std::string> lines;
  for (const StreamSummary& stream : summary.streams) {
    if (stream.lost().value_or(0) == 0) continue;
    lines.push_back("lost: " + std::to_string(*stream.lost()) + " of " +
                    std::to_string(stream.strap->sent) + " samples of the stream " +
                    std::string(streamInfo(stream.stream).name));
  }
  return lines;
}

}  // namespace Zephly::watch
