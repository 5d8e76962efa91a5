// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The session under test, and a record of its events.
///
/// The kit's central manager runs on the current host. Its events are recorded here and then
/// forwarded to a separate session, as in any application, so that the whole path to the
/// application is tested.

#include <tests/bluetooth/check/strap_log.h>
#include <zephly/protocol/streams.h>
#include <zephly/session/zephly.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace Zephly::bluetooth_check {

/// One connection as the kit reports it.
struct SeenLink {
  Readings received;
  Times receivedAt;
  bool ended = false;
};

/// An application that counts the events of the session.
class Application final : public ZephlyDelegate, public WorkoutDelegate {
 public:
  void didChangeLeadoffState(bool leadoff) override;
  void didConnectPeripheral() override { ++connections; }
  void didDisconnectPeripheral() override { ++disconnections; }
  void didReceiveTemperature(float objectTemperature, float ambientTemperature,
                             float bodyTemperature) override;
  void didReceiveECG(float sample) override;
  void didReceiveRespiration(float sample) override;
  void didReceiveBatteryStatus(BatteryStatus status) override;
  void didDetectPushUp() override { ++repetitions; }
  void didDetectSitUp() override { ++repetitions; }
  void didDetectJump() override { ++repetitions; }

  std::size_t connections = 0;
  std::size_t disconnections = 0;
  std::size_t leadoffChanges = 0;
  std::size_t temperatures = 0;
  std::size_t ecgSamples = 0;
  std::size_t respirationSamples = 0;
  std::size_t batteries = 0;
  std::size_t repetitions = 0;
};

class Probe final : public ZephlyPeripheralDelegate, public std::enable_shared_from_this<Probe> {
 public:
  /// A session on the current host.
  static std::shared_ptr<Probe> start();

  const std::vector<SeenLink>& links() const { return links_; }
  bool connected() const { return !links_.empty() && !links_.back().ended; }
  /// Values of the current link, 0 without one.
  std::size_t received(Stream stream) const;
  std::size_t disconnections() const { return disconnections_; }
  /// Disconnections reported without a connection.
  std::size_t unmatched() const { return unmatched_; }
  const Application& application() const { return *application_; }
  /// Clears the record of received values and their times.
  void forget();

  void didConnectPeripheral() override;
  void didDisconnectPeripheral() override;
  void didReceiveTemperature(float objectTemperature, float ambientTemperature) override;
  void didReceiveECG(const std::vector<float>& samples) override;
  void didReceiveRespiration(const std::vector<float>& samples) override;
  void didReceiveBatteryStatus(BatteryStatus status) override;
  void didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                           float az) override;

 private:
  Probe() = default;
  void take(Stream stream, const std::vector<float>& values);

  std::vector<SeenLink> links_;
  std::size_t disconnections_ = 0;
  std::size_t unmatched_ = 0;
  std::shared_ptr<Application> application_ = std::make_shared<Application>();
  std::shared_ptr<ZephlyPeripheralDelegate> session_;
  std::shared_ptr<CentralManager> centralManager_;
};

}  // namespace Zephly::bluetooth_check
