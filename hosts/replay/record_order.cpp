// SPDX-License-Identifier: MIT
#include <hosts/replay/record_order.h>

#include <capture/format.h>
#include <capture/text.h>

#include <algorithm>
#include <utility>

namespace Zephly::replay {

namespace {

using capture::CaptureError;

// Far below the range of the clock, so that sums with a time of a capture do not overflow.
constexpr auto latest = std::chrono::duration_cast<std::chrono::nanoseconds>(
    std::chrono::duration<double>(capture::longestTime));

std::string counted(std::uint64_t records) {
  return std::to_string(records) + (records == 1 ? " record" : " records");
}

}  // namespace

RecordOrder::RecordOrder(std::filesystem::path file)
    : path_(std::move(file)), reader_(path_), size_(std::filesystem::file_size(path_)) {
  if (const auto& continues = reader_.preamble().continues) {
    throw CaptureError(CaptureError::Kind::unusable, path_, 0,
                       "part " + std::to_string(continues->part) +
                           " of a recording, which is read from its first file on");
  }
}

// A recording that goes on makes the file longer.
double RecordOrder::part() const {
  return std::min(1.0, static_cast<double>(reader_.offset()) / static_cast<double>(size_));
}

std::optional<capture::Record> RecordOrder::next() {
  offset_ = reader_.offset();
  auto record = reader_.next();
  if (record) {
    const auto time = record->stamp.monotonic;
    if (time < time_) throw damaged("time runs backwards");
    if (time > latest) throw damaged("a time beyond the longest session");
    time_ = time;
  } else if (!reader_.ended()) {
    throw CaptureError(CaptureError::Kind::cut, reader_.file(), reader_.offset(),
                       "the capture stops here without its end");
  }
  return record;
}

CaptureError RecordOrder::damaged(const std::string& what) const {
  return {CaptureError::Kind::damaged, reader_.file(), offset_, what};
}

std::optional<std::string> RecordOrder::complaint(const Divergences& divergences) const {
  if (divergences.count == 0 && reader_.lostRecords() == 0) return std::nullopt;
  if (divergences.count == 0) {
    return counted(reader_.lostRecords()) + " lost while nothing could be written";
  }
  return counted(divergences.count) + " that the session did not request; the first at " +
         capture::clockText(divergences.firstTime) + ": " + divergences.first;
}

}  // namespace Zephly::replay
