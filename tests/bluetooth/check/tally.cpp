// SPDX-License-Identifier: MIT
#include <tests/bluetooth/check/tally.h>

#include <zephly/protocol/streams.h>

#include <algorithm>
#include <iterator>

namespace Zephly::bluetooth_check {

namespace {

Tally compareStream(const std::vector<Reading>& sent, const std::vector<Reading>& received) {
  Tally tally;
  tally.sent = sent.size();
  tally.received = received.size();
  auto next = sent.begin();
  for (const Reading& reading : received) {
    if (next != sent.end() && *next == reading) {
      ++next;
      continue;
    }
    const auto later = std::find(next, sent.end(), reading);
    if (later != sent.end()) {
      tally.lost += static_cast<std::size_t>(std::distance(next, later));
      next = std::next(later);
    } else if (std::find(sent.begin(), next, reading) != next) {
      ++tally.twice;
    } else {
      ++tally.foreign;
    }
  }
  tally.missing = static_cast<std::size_t>(std::distance(next, sent.end()));
  return tally;
}

std::vector<Reading> of(const Readings& readings, Stream stream) {
  const auto found = readings.find(stream);
  return found == readings.end() ? std::vector<Reading>() : found->second;
}

}  // namespace

Tally& Tally::operator+=(const Tally& other) {
  sent += other.sent;
  received += other.received;
  lost += other.lost;
  missing += other.missing;
  twice += other.twice;
  foreign += other.foreign;
  dropped += other.dropped;
  return *this;
}

Tally compare(const Readings& sent, const Readings& received) {
  Tally total;
  for (const Stream stream : allStreams) {
    total += compareStream(of(sent, stream), of(received, stream));
  }
  return total;
}

}  // namespace Zephly::bluetooth_check
