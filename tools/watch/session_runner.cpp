// SPDX-License-Identifier: MIT
#include <tools/watch/session_runner.h>

#include <tools/common/command.h>
#include <tools/common/end_signals.h>
#include <zephly/session/zephly.h>

#include <iostream>
#include <utility>

namespace Zephly::watch {

SessionRunner::SessionRunner(std::string command, main_queue::MainQueue& queue,
                             const SourceOptions& options, SessionHandler& handler,
                             std::chrono::milliseconds refreshInterval, std::streambuf* console)
    : command_(std::move(command)),
      queue_(queue),
      handler_(handler),
      refreshInterval_(refreshInterval),
      endSignals_(tools::watchEndSignals(queue_, [this] { handler_.onEndSignal(); })),
      source_(makeSource(
          queue_, options,
          [this](std::string_view line) {
            handler_.onHostLine(line);
            receiver_->hostLine(line);
          },
          [this] { handler_.onSourceEnd(); })),
      receiver_(
          std::make_shared<Receiver>([this] { return source_->now(); },
                                     [this](const Event& event) { handler_.onEvent(event); })),
      observation_(*receiver_, console) {}

SessionRunner::~SessionRunner() = default;

void SessionRunner::measureVitals() {
  vitals_.emplace(*receiver_, [this] { return now(); });
}

void SessionRunner::run() {
  session_ = ::Zephly::Zephly::init(receiver_);
  session_->startWorkoutDetection(receiver_);
  handler_.onReady();
  source_->start([this] { return handler_.holdsSource(); });
  refresh();
  queue_.run();
}

void SessionRunner::refresh() {
  handler_.onRefresh();
  refreshTimer_ = queue_.after(refreshInterval_, [this] { refresh(); });
}

void SessionRunner::stopClock() {
  if (ended_) return;
  ended_ = source_->now();
  receiver_->endAt(*ended_);
}

void SessionRunner::end() {
  stopClock();
  queue_.stop();
}

const SourceReport& SessionRunner::finish() {
  if (!report_) {
    stopClock();
    report_ = source_->finish();
    if (vitals_) vitals_->finish();
  }
  return *report_;
}

int SessionRunner::exitCode(const std::vector<std::string>& complaints) const {
  for (const std::string& complaint : complaints) {
    std::cerr << "zephly " << command_ << ": " << complaint << '\n';
  }
  return complaints.empty() ? tools::exitDone : tools::exitFailed;
}

}  // namespace Zephly::watch
