// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The session: the one object that an application creates to use the strap.
///
///   auto app = std::make_shared<Application>();   // a ZephlyDelegate
///   auto session = Zephly::Zephly::init(app);     // scans, connects and reconnects by itself
///   queue.run();                                  // everything else arrives at `app`
///
/// Creating it starts everything: Bluetooth, the processing engine and exercise detection. Every
/// call to the application is made on the main queue. A session lives as long as the process: it
/// and its central manager own each other, and there is no operation that ends it. To stop
/// receiving events, destroy the delegate.

#include <zephly/ble/central_manager.h>
#include <zephly/phone/imu.h>
#include <zephly/platform/export.h>
#include <zephly/session/imu_delegate.h>
#include <zephly/session/signal_processor.h>
#include <zephly/session/workout_delegate.h>
#include <zephly/session/zephly_delegate.h>
#include <zephly/session/zephly_peripheral_delegate.h>

#include <memory>
#include <optional>
#include <vector>

namespace Zephly {

/// One strap, one session.
class ZEPHLY_EXPORT Zephly : public ZephlyPeripheralDelegate,
                             public IMUDelegate,
                             public WorkoutDelegate {
 public:
  /// Starts a session that reports to `zephlyDelegate`, which it does not own. A host must be in
  /// use.
  static std::shared_ptr<Zephly> init(const std::shared_ptr<ZephlyDelegate>& zephlyDelegate);

  Zephly(const Zephly&) = delete;
  Zephly& operator=(const Zephly&) = delete;

  /// Reports exercise repetitions to `workoutDelegate` from now on, which is not owned. Until this
  /// is called the session writes them to standard output.
  void startWorkoutDetection(const std::shared_ptr<WorkoutDelegate>& workoutDelegate);

 private:
  friend struct ::SessionTestAccess;

  Zephly() = default;

  // Called by the central manager, through the interface only: applications cannot call these.

  void didConnectPeripheral() override;
  void didDisconnectPeripheral() override;
  /// The body temperature reported to the application is always 0.
  void didReceiveTemperature(float objectTemperature, float ambientTemperature) override;
  /// Calls the application once per sample, unfiltered.
  void didReceiveECG(const std::vector<float>& samples) override;
  /// Per sample: lead-off detection, always; then, while there is an application, reports a change
  /// of contact and the filtered sample.
  void didReceiveRespiration(const std::vector<float>& samples) override;
  void didReceiveBatteryStatus(BatteryStatus status) override;
  /// Feeds exercise detection; not reported to the application.
  void didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                           float az) override;

  /// The phone's own motion sensors: feeds the nine-axis path of the engine. Nothing calls it yet.
  void didReceiveIMUValues(float gx, float gy, float gz, float ax, float ay, float az, float mx,
                           float my, float mz) override;

  // Receives repetitions until startWorkoutDetection: writes each as one line to standard output.

  void didDetectPushUp() override;
  void didDetectSitUp() override;
  void didDetectJump() override;

  void processRespirationSample(float sample);

  std::shared_ptr<IMU> imu;
  std::shared_ptr<CentralManager> centralManager;
  std::shared_ptr<::SignalProcessor> sp;
  std::weak_ptr<ZephlyDelegate> zephlyDelegate;
  // The result of lead-off detection for the last respiration sample: true means contact. Empty
  // before the first sample.
  std::optional<bool> leadoff;
};

}  // namespace Zephly
