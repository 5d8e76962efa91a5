// SPDX-License-Identifier: MIT
#include <tools/inspect/contents_text.h>

#include <capture/text.h>
#include <tools/watch/rate_meter.h>
#include <zephly/protocol/streams.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <locale>
#include <sstream>

namespace Zephly::inspect {

namespace {

using nlohmann::ordered_json;

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

ordered_json optionalSeconds(const std::optional<StrapTime>& time) {
  return time ? ordered_json(seconds(*time)) : ordered_json();
}

ordered_json streamJson(Stream stream, const StreamContents& found, StrapTime duration) {
  const auto rate = found.arrivals.perSecond();
  const auto share = found.gaps.share(duration);
  return {{"stream", streamInfo(stream).name},
          {"notifications", found.notifications},
          {"samples", found.samples},
          {"unusualSize", found.unusualSize},
          {"perSecond", rate ? ordered_json(*rate) : ordered_json()},
          {"longestGap", optionalSeconds(found.arrivals.longestGap())},
          {"missing", optionalSeconds(found.gaps.missing(duration))},
          {"missingPercent", share ? ordered_json(*share * 100) : ordered_json()}};
}

}  // namespace

std::string counted(std::uint64_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string contentsText(const Contents& contents) {
  std::ostringstream text;
  text.imbue(std::locale::classic());  // no separators of thousands
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

ordered_json contentsJson(const Contents& contents) {
  ordered_json json;
  json["duration"] = seconds(contents.duration());
  json["records"] = contents.records();
  json["streams"] = ordered_json::array();
  for (const Stream stream : allStreams) {
    json["streams"].push_back(streamJson(stream, contents.of(stream), contents.duration()));
  }
  json["otherNotifications"] = contents.otherNotifications();
  json["connectionCount"] = contents.connectionCount();
  json["connections"] = ordered_json::array();
  for (const auto time : contents.connections()) json["connections"].push_back(seconds(time));
  json["linkLossCount"] = contents.linkLossCount();
  json["linkLosses"] = ordered_json::array();
  for (const LinkLoss& loss : contents.linkLosses()) {
    json["linkLosses"].push_back({{"at", seconds(loss.time)},
                                  {"reason", loss.reason ? ordered_json(*loss.reason) : nullptr},
                                  {"recovered", optionalSeconds(loss.recovery)}});
  }
  json["gapCount"] = contents.gapCount();
  json["gaps"] = ordered_json::array();
  for (const Gap& gap : contents.gaps()) {
    json["gaps"].push_back({{"stream", streamInfo(gap.stream).name},
                            {"from", seconds(gap.from)},
                            {"to", optionalSeconds(gap.to)},
                            {"linkLost", gap.linkLost}});
  }
  json["errorCount"] = contents.failureCount();
  json["errors"] = ordered_json::array();
  for (const Failure& failure : contents.failures()) {
    json["errors"].push_back(
        {{"at", seconds(failure.time)}, {"what", failure.what}, {"text", failure.text}});
  }
  return json;
}

}  // namespace Zephly::inspect
