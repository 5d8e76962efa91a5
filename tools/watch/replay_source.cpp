#include <tools/watch/replay_source.h>

#include <tools/capture/capture_error.h>
#include <tools/option_values.h>
#include <tools/replay/contradiction.h>
#include <tools/text.h>
#include <tools/watch/pace.h>

#include <chrono>
#include <utility>

namespace Zephly::watch {

namespace {

using capture::CaptureError;

// Faster than any machine: everything is due at once, and the pacer shares the queue.
constexpr double unlimited = 1e18;

// No record is later; the pacer's clock goes further.
constexpr auto latest = std::chrono::duration_cast<std::chrono::nanoseconds>(
    std::chrono::duration<double>(tools::longestTime));

}  // namespace

ReplaySource::ReplaySource(main_queue::MainQueue& queue, ReplayOptions options,
                           std::function<void()> ended)
    : queue_(queue),
      options_(std::move(options)),
      ended_(std::move(ended)),
      reader_(options_.file) {
  // Before the records, so that the duration ends before what was recorded at its end.
  if (options_.duration) scheduler_.at(*options_.duration, [this] { end(); });
}

std::string ReplaySource::title() const {
  return tools::printable(options_.file.filename().string() + ": " + reader_.preamble().source);
}

std::string ReplaySource::pace() const {
  if (!options_.speed) return "as fast as it goes";
  return paceText(*options_.speed, pacer_ ? pacer_->behind() : simulated::Duration{});
}

void ReplaySource::start() {
  scheduler_.after({}, [this] { readOn(); });
  pacer_.emplace(queue_, scheduler_, options_.speed.value_or(unlimited));
}

void ReplaySource::readOn() {
  try {
    const std::uint64_t offset = reader_.offset();
    if (auto record = reader_.next()) {
      schedule(std::move(*record), offset);
      return;
    }
    if (!reader_.ended()) {
      throw CaptureError(CaptureError::Kind::cut, options_.file, reader_.offset(),
                         "the capture stops here without its end");
    }
  } catch (const CaptureError& error) {
    complain(error.what());
  }
  end();
}

void ReplaySource::schedule(capture::Record record, std::uint64_t offset) {
  const auto time = record.stamp.monotonic;
  if (time < scheduler_.now() || time > latest) {
    throw CaptureError(CaptureError::Kind::damaged, options_.file, offset,
                       time > latest ? "a time that no session reaches" : "time runs backwards");
  }
  scheduler_.at(time, [this, record = std::move(record), offset] { play(record, offset); });
}

void ReplaySource::play(const capture::Record& record, std::uint64_t offset) {
  if (over_) return;
  try {
    host_.deliver(record);
  } catch (const replay::Contradiction& contradiction) {
    complain(CaptureError(CaptureError::Kind::damaged, options_.file, offset, contradiction.what())
                 .what());
    end();
    return;
  }
  readOn();
}

void ReplaySource::complain(const std::string& line) { report_.complaints.push_back(line); }

void ReplaySource::end() {
  if (over_) return;
  over_ = scheduler_.now();
  ended_();
}

SourceReport ReplaySource::finish() {
  pacer_.reset();
  if (!over_) over_ = scheduler_.now();
  report_.duration = *over_;
  const replay::Divergences& divergences = host_.divergences();
  if (divergences.count > 0) {
    complain(tools::printable(options_.file.string()) + ": " + std::to_string(divergences.count) +
             (divergences.count == 1 ? " record" : " records") +
             " that the session has not asked for; the first at " +
             tools::clockText(divergences.firstTime) + ": " + divergences.first);
  }
  return report_;
}

}  // namespace Zephly::watch
