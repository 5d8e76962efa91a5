// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads and changes private members of the session's classes.

#include <zephly/ble/central_manager.h>
#include <zephly/session/zephly.h>

#include <memory>
#include <optional>

struct SessionTestAccess {
  using Session = ::Zephly::Zephly;

  static Session* session(const CentralManager& manager) {
    return dynamic_cast<Session*>(manager.delegate.get());
  }
  static std::shared_ptr<CBPeripheral> rememberedPeripheral(const CentralManager& manager) {
    return manager.peripheral;
  }
  static bool hasIMU(const Session& session) { return session.imu != nullptr; }
  static bool hasZephlyDelegate(const Session& session) {
    return !session.zephlyDelegate.expired();
  }
  static std::weak_ptr<ZephlyDelegate>& zephlyDelegate(Session& session) {
    return session.zephlyDelegate;
  }
  static std::shared_ptr<CentralManager> centralManager(const Session& session) {
    return session.centralManager;
  }
  static std::shared_ptr<::SignalProcessor>& wrapper(Session& session) { return session.sp; }
  static std::optional<bool>& leadoff(Session& session) { return session.leadoff; }

  /// Breaks the cycle of ownership between session and central manager. Otherwise neither is ever
  /// destroyed.
  static void release(Session& session) { session.centralManager->delegate.reset(); }
};

// The interfaces through which events reach a session.

inline ZephlyPeripheralDelegate& strapEvents(::Zephly::Zephly& session) { return session; }
inline IMUDelegate& phoneEvents(::Zephly::Zephly& session) { return session; }
inline WorkoutDelegate& workoutEvents(::Zephly::Zephly& session) { return session; }
