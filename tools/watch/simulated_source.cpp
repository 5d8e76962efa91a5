// SPDX-License-Identifier: MIT
#include <tools/watch/simulated_source.h>

#include <tools/watch/pace.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>

#include <chrono>
#include <string>
#include <utility>

namespace Zephly::watch {

namespace {

using namespace std::chrono_literals;

// Interval at which the end of a recording is checked.
constexpr simulated::Duration recordingInterval = 100ms;

// Other devices that advertise in range, as in any real environment.
void addCompany(simulated::Radio& radio) {
  radio.addDevice({.name = std::nullopt, .advertisingInterval = 370ms, .rssi = -88});
  radio.addDevice({.name = "Kitchen scale", .advertisingInterval = 1100ms, .rssi = -75});
  radio.addDevice({.name = "zephly", .advertisingInterval = 530ms, .rssi = -52});
}

}  // namespace

SimulatedSource::SimulatedSource(main_queue::MainQueue& queue, SimulatedOptions options,
                                 std::function<void()> ended)
    : queue_(queue),
      options_(std::move(options)),
      ended_(std::move(ended)),
      radio_(scheduler_),
      strap_({.seed = options_.seed, .recording = options_.recording}) {
  // Before the strap's own events, so that the duration ends before what happens at its end.
  if (options_.duration) scheduler_.at(*options_.duration, [this] { end(); });
  addCompany(radio_);
  simulated::Device& device = radio_.addDevice({.name = std::string(peripheralName), .rssi = -58});
  simulated::addStrapProfile(device);
  device_.emplace(device, strap_);
  device_->loseLinksOf(strap_.plan());
  if (options_.recording) watchRecording();
}

void SimulatedSource::start(std::function<bool()> held) {
  pacer_.emplace(queue_, scheduler_, options_.speed,
                 simulated::Pacer::Options{.held = std::move(held)});
}

std::string SimulatedSource::title() const {
  if (options_.recording) return "simulated strap plays " + options_.recordingName;
  return "simulated strap, seed " + std::to_string(options_.seed);
}

std::string SimulatedSource::pace() const {
  return paceText(options_.speed, pacer_ ? pacer_->behind() : simulated::Duration{});
}

void SimulatedSource::watchRecording() {
  if (strap_.finished()) {
    end();
  } else {
    scheduler_.after(recordingInterval, [this] { watchRecording(); });
  }
}

void SimulatedSource::end() {
  if (!device_) return;
  stopSending();
  ended_();
}

void SimulatedSource::stopSending() {
  if (!device_) return;
  over_ = scheduler_.now();
  report_.duration = now();
  StrapReport& report = report_.strap.emplace();
  report.repetitionsDone = strap_.repetitionsDone(now());
  for (const Stream stream : allStreams) {
    const simulated::StrapDevice::Counts& counts = device_->counts(stream);
    StreamSent& sent = report.streams[stream];
    sent.sent = counts.samplesSent;
    sent.notSubscribed =
        counts.framesUnsubscribed * static_cast<std::uint64_t>(streamInfo(stream).samplesPerFrame);
    sent.recording = strap_.playback(stream);
  }
  device_.reset();
}

SourceReport SimulatedSource::finish() {
  pacer_.reset();
  stopSending();
  scheduler_.advance(0s);
  return report_;
}

}  // namespace Zephly::watch
