// SPDX-License-Identifier: MIT
#include <tools/watch/replay_source.h>

#include <capture/capture_error.h>
#include <capture/text.h>
#include <hosts/replay/contradiction.h>
#include <tools/watch/pace.h>

#include <utility>

namespace Zephly::watch {

namespace {

// No machine reaches this speed, so everything is due at once, and the pacer shares the queue.
constexpr double unlimited = 1e18;

}  // namespace

ReplaySource::ReplaySource(main_queue::MainQueue& queue, ReplayOptions options,
                           std::function<void()> ended)
    : queue_(queue),
      options_(std::move(options)),
      ended_(std::move(ended)),
      records_(options_.file) {
  // Before the records, so that the duration ends before what was recorded at its end.
  if (options_.duration) scheduler_.at(options_.from + *options_.duration, [this] { end(); });
}

std::string ReplaySource::title() const {
  return capture::printable(options_.file.filename().string() + ": " + records_.preamble().source);
}

std::string ReplaySource::pace() const {
  if (!options_.speed || (pacer_ && !arrived_)) return "as fast as it goes";
  return paceText(*options_.speed, pacer_ ? pacer_->behind() : simulated::Duration{});
}

void ReplaySource::start(std::function<bool()> held) {
  scheduler_.after({}, [this] { readOn(); });
  if (options_.from > StrapTime::zero()) {
    skip(std::move(held));
  } else {
    pace(std::move(held));
  }
}

// One event a turn, so that nothing behind `from` is played at this speed. A pacer must not be
// replaced from inside an event of its scheduler.
void ReplaySource::skip(std::function<bool()> held) {
  scheduler_.at(options_.from, [this, held] {
    arrived_ = true;
    arriving_ = queue_.after({}, [this, held] { pace(held); });
  });
  pacer_.emplace(queue_, scheduler_, unlimited,
                 simulated::Pacer::Options{.eventsPerTurn = 1, .held = std::move(held)});
}

void ReplaySource::pace(std::function<bool()> held) {
  arrived_ = true;
  pacer_.emplace(queue_, scheduler_, options_.speed.value_or(unlimited),
                 simulated::Pacer::Options{.held = std::move(held)});
}

void ReplaySource::readOn() {
  try {
    if (auto record = records_.next()) {
      const auto time = record->stamp.monotonic;
      scheduler_.at(time, [this, record = std::move(*record)] { play(record); });
      return;
    }
  } catch (const capture::CaptureError& error) {
    complain(error.what());
  }
  end();
}

void ReplaySource::play(const capture::Record& record) {
  if (over_) return;
  try {
    host_.deliver(record);
  } catch (const replay::Contradiction& contradiction) {
    complain(records_.damaged(contradiction.what()).what());
    end();
    return;
  }
  readOn();
}

void ReplaySource::complain(const std::string& line) { report_.complaints.push_back(line); }

void ReplaySource::end() {
  if (over_) return;
  over_ = scheduler_.now();
  if (!arrived_) {
    complain(capture::printable(options_.file.string()) + ": it ends before " +
             capture::clockText(options_.from));
  }
  ended_();
}

SourceReport ReplaySource::finish() {
  arriving_ = {};
  pacer_.reset();
  if (!over_) over_ = scheduler_.now();
  report_.duration = *over_;
  if (const auto complaint = records_.complaint(host_.divergences())) {
    complain(capture::printable(options_.file.string()) + ": " + *complaint);
  }
  return report_;
}

}  // namespace Zephly::watch
