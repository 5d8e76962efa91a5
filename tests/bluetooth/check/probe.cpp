// SPDX-License-Identifier: MIT
#include <tests/bluetooth/check/probe.h>

#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <zephly/platform/host.h>
#include <zephly/protocol/streams.h>

#include <chrono>

namespace Zephly::bluetooth_check {

void Application::didChangeLeadoffState(bool /*leadoff*/) { ++leadoffChanges; }

void Application::didReceiveTemperature(float /*object*/, float /*ambient*/, float /*body*/) {
  ++temperatures;
}

void Application::didReceiveECG(float /*sample*/) { ++ecgSamples; }

void Application::didReceiveRespiration(float /*sample*/) { ++respirationSamples; }

void Application::didReceiveBatteryStatus(BatteryStatus /*status*/) { ++batteries; }

std::shared_ptr<Probe> Probe::start() {
  std::shared_ptr<Probe> probe(new Probe());
  Host* host = Host::current();
  {
    // The session's central has no radio: this probe forwards all events to the session.
    simulated::Scheduler scheduler;
    const simulated::Radio silence(scheduler, CBManagerState::unsupported);
    const auto session = Zephly::init(probe->application_);
    session->startWorkoutDetection(probe->application_);
    probe->session_ = session;
  }
  Host::use(host);
  probe->centralManager_ = CentralManager::init(probe);
  return probe;
}

std::size_t Probe::received(Stream stream) const {
  if (!connected()) return 0;
  const auto found = links_.back().received.find(stream);
  return found == links_.back().received.end() ? 0 : found->second.size();
}

void Probe::forget() {
  for (SeenLink& link : links_) {
    link.received.clear();
    link.receivedAt.clear();
  }
}

void Probe::didConnectPeripheral() {
  if (connected()) ++unmatched_;
  links_.emplace_back();
  session_->didConnectPeripheral();
}

void Probe::didDisconnectPeripheral() {
  ++disconnections_;
  if (connected()) {
    links_.back().ended = true;
  } else {
    ++unmatched_;
  }
  session_->didDisconnectPeripheral();
}

void Probe::didReceiveTemperature(float objectTemperature, float ambientTemperature) {
  take(Stream::temperature, {objectTemperature, ambientTemperature});
  session_->didReceiveTemperature(objectTemperature, ambientTemperature);
}

void Probe::didReceiveECG(const std::vector<float>& samples) {
  take(Stream::ecg, samples);
  session_->didReceiveECG(samples);
}

void Probe::didReceiveRespiration(const std::vector<float>& samples) {
  take(Stream::respiration, samples);
  session_->didReceiveRespiration(samples);
}

void Probe::didReceiveBatteryStatus(BatteryStatus status) {
  take(Stream::battery, {status.soc, status.inCharge ? 1.0F : 0.0F});
  session_->didReceiveBatteryStatus(status);
}

void Probe::didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                                float az) {
  take(Stream::motion, {qw, qx, qy, qz, ax, ay, az});
  session_->didReceiveIMUValues(qw, qx, qy, qz, ax, ay, az);
}

void Probe::take(Stream stream, const std::vector<float>& values) {
  // A value without a connection is counted as one that was not sent.
  if (!connected()) ++unmatched_;
  if (links_.empty()) return;
  links_.back().received[stream].push_back(readingOf(values));
  links_.back().receivedAt[stream].push_back(
      std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count());
}

}  // namespace Zephly::bluetooth_check
