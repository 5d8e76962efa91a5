// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The handler of one connected strap: discovers its characteristics, subscribes to those of the
/// profile and turns every notification into one call of a ZephlyPeripheralDelegate.
///
/// The central manager creates one for each connection, makes it the platform peripheral's delegate
/// and starts service discovery; every further step is taken in a callback. Errors of
/// discovery, subscription and reading are printed, one line each, and otherwise ignored: nothing
/// is retried here. Runs on the main queue.

#include <zephly/platform/core_bluetooth.h>
#include <zephly/platform/export.h>
#include <zephly/platform/foundation.h>
#include <zephly/session/zephly_peripheral_delegate.h>

#include <memory>

/// Translates the platform's callbacks into calls of the delegate, for one connection.
class ZEPHLY_EXPORT ZephlyPeripheral : public NSObject, public CBPeripheralDelegate {
 public:
  /// A handler that reports to `zephlyDelegate`, which it does not own. The delegate must be alive
  /// whenever a value is delivered: delivering to a destroyed delegate is a fatal error.
  static std::shared_ptr<ZephlyPeripheral> init(
      std::weak_ptr<ZephlyPeripheralDelegate> zephlyDelegate);

  /// Not available: a handler without a delegate has no use. A fatal error.
  [[noreturn]] static std::shared_ptr<ZephlyPeripheral> init();

  /// Starts discovery of all characteristics of each service, in order. An error is ignored;
  /// an absent list of services is a fatal error.
  void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                     const std::shared_ptr<const NSError>& error) override;

  /// Prints each characteristic and subscribes to those of the profile, in the order in which the
  /// device lists them. An error is printed and then ignored: the listed ones are used. An absent
  /// list of characteristics is a fatal error.
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::shared_ptr<const NSError>& error) override;

  /// Prints the error of a subscription that failed.
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override;

  /// Decodes one notification by its characteristic and delivers it. An error is printed and its
  /// value dropped; an absent value and a foreign characteristic are ignored.
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::shared_ptr<const NSError>& error) override;

 protected:
  const Zephly::SelectorTable& selectors() const override;

 private:
  explicit ZephlyPeripheral(std::weak_ptr<ZephlyPeripheralDelegate> delegate);

  void didReceiveIMU(const NSData& frame);
  std::shared_ptr<ZephlyPeripheralDelegate> requireDelegate() const;

  std::weak_ptr<ZephlyPeripheralDelegate> zephlyDelegate;
};
