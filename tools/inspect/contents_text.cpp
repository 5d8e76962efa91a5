// SPDX-License-Identifier: MIT
#include <tools/inspect/contents_text.h>

#include <capture/text.h>
#include <tools/common/json_object.h>
#include <tools/common/text_stream.h>
#include <tools/watch/rate_meter.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <chrono>
#include <iomanip>

namespace Zephly::inspect {

namespace {

using tools::JsonArray;
using tools::JsonObject;

// Lines of one list; the rest is in the JSON text.
constexpr std::size_t screenful = 20;

void writeStreams(std::ostream& text, const Contents& contents) {
  text << "                                                 longest gap\n"
          "  stream     notifications  samples per second within a link             missing\n";
  for (const Stream stream : allStreams) {
    const StreamContents& found = contents.of(stream);
    text << "  " << std::left << std::setw(11) << streamInfo(stream).name << std::right
         << std::setw(13) << found.notifications << std::setw(9) << found.samples << std::setw(11)
         << watch::rateText(stream, found.arrivals.perSecond());
    if (const auto gap = found.arrivals.longestGap()) {
      text << std::setw(12) << std::setprecision(3) << seconds(*gap) << " s";
    }
    const auto missing = found.gaps.missing(contents.duration());
    const auto share = found.gaps.share(contents.duration());
    if (missing && share) {
      text << std::setw(10) << std::setprecision(3) << seconds(*missing) << " s" << std::setw(6)
           << std::setprecision(1) << *share * 100 << " %";
    }
    text << '\n';
    if (found.unusualSize > 0) {
      text << "             " << counted(found.unusualSize, "notification")
           << " of an unusual length\n";
    }
  }
  if (contents.otherNotifications() > 0) {
    text << "  other      " << std::setw(14) << contents.otherNotifications() << '\n';
  }
}

// `count` may be larger than the list, which has its first entries only.
template <class Entry, class Write>
void writeList(std::ostream& text, const std::vector<Entry>& list, std::uint64_t count,
               const Write& write) {
  const std::size_t shown = std::min(list.size(), screenful);
  for (std::size_t i = 0; i < shown; ++i) write(list[i]);
  if (count > shown) text << "               and " << count - shown << " more\n";
}

void writeGap(std::ostream& text, const Gap& gap) {
  text << "  gap          at " << capture::clockText(gap.from) << ", "
       << streamInfo(gap.stream).name;
  if (gap.to) {
    text << ", " << std::setprecision(3) << seconds(*gap.to - gap.from) << " s";
  } else {
    text << ", to the end";
  }
  text << (gap.linkLost ? ", link lost\n" : "\n");
}

void writeLinkLoss(std::ostream& text, const LinkLoss& loss) {
  text << "  link lost    at " << capture::clockText(loss.time);
  if (loss.recovery) {
    text << " for " << std::setprecision(1) << seconds(*loss.recovery - loss.time) << " s";
  } else {
    text << " to the end";
  }
  if (loss.reason) text << ": " << capture::printable(*loss.reason);
  text << '\n';
}

std::optional<double> optionalSeconds(const std::optional<StrapTime>& time) {
  return time ? std::optional(seconds(*time)) : std::nullopt;
}

JsonObject streamJson(Stream stream, const StreamContents& found, StrapTime duration) {
  const auto share = found.gaps.share(duration);
  JsonObject json;
  json.add("stream", streamInfo(stream).name)
      .add("notifications", found.notifications)
      .add("samples", found.samples)
      .add("unusualSize", found.unusualSize)
      .add("perSecond", found.arrivals.perSecond())
      .add("longestGap", optionalSeconds(found.arrivals.longestGap()))
      .add("missing", optionalSeconds(found.gaps.missing(duration)))
      .add("missingPercent", share ? std::optional(*share * 100) : std::nullopt);
  return json;
}

JsonArray connectionsJson(const Contents& contents) {
  JsonArray list;
  for (const StrapTime time : contents.connections()) list.add(seconds(time));
  return list;
}

JsonArray linkLossesJson(const Contents& contents) {
  JsonArray list;
  for (const LinkLoss& loss : contents.linkLosses()) {
    list.add(JsonObject()
                 .add("at", seconds(loss.time))
                 .add("reason", loss.reason)
                 .add("recovered", optionalSeconds(loss.recovery)));
  }
  return list;
}

JsonArray gapsJson(const Contents& contents) {
  JsonArray list;
  for (const Gap& gap : contents.gaps()) {
    list.add(JsonObject()
                 .add("stream", streamInfo(gap.stream).name)
                 .add("from", seconds(gap.from))
                 .add("to", optionalSeconds(gap.to))
                 .add("linkLost", gap.linkLost));
  }
  return list;
}

JsonArray failuresJson(const Contents& contents) {
  JsonArray list;
  for (const Failure& failure : contents.failures()) {
    list.add(JsonObject()
                 .add("at", seconds(failure.time))
                 .add("what", failure.what)
                 .add("text", failure.text));
  }
  return list;
}

}  // namespace

std::string counted(std::uint64_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string contentsText(const Contents& contents) {
  tools::TextStream text;
  text << std::fixed;
  writeStreams(text, contents);
  text << "  link         " << counted(contents.connectionCount(), "connection") << ", "
       << contents.linkLossCount() << (contents.linkLossCount() == 1 ? " loss" : " losses") << '\n';
  writeList(text, contents.linkLosses(), contents.linkLossCount(),
            [&](const LinkLoss& loss) { writeLinkLoss(text, loss); });
  writeList(text, contents.gaps(), contents.gapCount(),
            [&](const Gap& gap) { writeGap(text, gap); });
  writeList(text, contents.failures(), contents.failureCount(), [&](const Failure& failure) {
    text << "  error        at " << capture::clockText(failure.time) << ", " << failure.what << ": "
         << capture::printable(failure.text) << '\n';
  });
  return text.str();
}

void addContents(JsonObject& json, const Contents& contents) {
  JsonArray streams;
  for (const Stream stream : allStreams) {
    streams.add(streamJson(stream, contents.of(stream), contents.duration()));
  }
  json.add("duration", seconds(contents.duration()))
      .add("records", contents.records())
      .add("streams", streams)
      .add("otherNotifications", contents.otherNotifications())
      .add("connectionCount", contents.connectionCount())
      .add("connections", connectionsJson(contents))
      .add("linkLossCount", contents.linkLossCount())
      .add("linkLosses", linkLossesJson(contents))
      .add("gapCount", contents.gapCount())
      .add("gaps", gapsJson(contents))
      .add("errorCount", contents.failureCount())
      .add("errors", failuresJson(contents));
}

}  // namespace Zephly::inspect
