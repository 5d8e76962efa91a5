// SPDX-License-Identifier: MIT
#include <tests/support/sessions.h>

#include <hosts/main_queue/main_queue.h>
#include <tests/support/event_bits.h>
#include <tools/watch/replay_source.h>
#include <zephly/ble/gatt_profile.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace sessions {

using namespace std::chrono_literals;
using namespace Zephly;

namespace {

testing::AssertionResult sameLines(const char* what, const std::vector<std::string>& expected,
                                   const std::vector<std::string>& actual) {
  const auto [left, right] =
      std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
  if (left == expected.end() && right == actual.end()) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << what << " " << left - expected.begin() << " of " << expected.size() << " is \""
         << (right == actual.end() ? "missing" : *right) << "\", expected \""
         << (left == expected.end() ? "none" : *left) << "\"";
}

simulated::Device& addStrap(simulated::Radio& radio) {
  simulated::Device& device = radio.addDevice({.name = std::string(peripheralName)});
  simulated::addStrapProfile(device);
  return device;
}

}  // namespace

std::size_t ReceivedSession::count(std::size_t kind) const {
  const std::string mark = " " + std::to_string(kind);
  return static_cast<std::size_t>(
      std::count_if(events.begin(), events.end(), [&](const std::string& event) {
        const std::size_t blank = event.find(' ');
        const std::size_t end = event.find(' ', blank + 1);
        return event.substr(blank, end == std::string::npos ? end : end - blank) == mark;
      }));
}

testing::AssertionResult sameSession(const ReceivedSession& expected,
                                     const ReceivedSession& actual) {
  const auto events = sameLines("event", expected.events, actual.events);
  return events ? sameLines("line", expected.lines, actual.lines) : events;
}

Listener::Listener(watch::Receiver::Clock clock, bool workout)
    : receiver_(std::make_shared<watch::Receiver>(
          std::move(clock),
          [this](const watch::Event& event) { received_.events.push_back(eventBits(event)); })),
      observation_(*receiver_, &console_),
      session_(::Zephly::Zephly::init(receiver_)) {
  if (workout) session_->startWorkoutDetection(receiver_);
}

LiveWorld::LiveWorld(const simulator::StrapOptions& options)
    : device(addStrap(radio)), wearer(options), strap(device, wearer) {
  radio.addDevice({.name = "Kitchen scale", .advertisingInterval = 1100ms});
  strap.loseLinksOf(wearer.plan());
  tap_.emplace(capture::TapOptions{
      .now = [this] { return scheduler.now(); },
      .sink = [this](const capture::Record& record) { records_.push_back(record); }});
  listener_.emplace([this] { return scheduler.now(); });
}

std::vector<capture::Record> LiveWorld::end() {
  tap_->end();
  return std::move(records_);
}

Replayed replay(const std::filesystem::path& file, std::optional<double> speed,
                std::optional<StrapTime> duration) {
  main_queue::MainQueue queue;
  watch::ReplaySource source(queue, {.file = file, .speed = speed, .duration = duration},
                             [&] { queue.stop(); });
  const Listener listener([&] { return source.now(); });
  source.start();
  queue.run();
  return {listener.received(), source.finish()};
}

}  // namespace sessions
