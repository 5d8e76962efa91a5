// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The options of every command that uses this machine's Bluetooth.
///
///   bluez::Options bluetooth;
///   addBluetoothOptions(command, bluetooth);  // --adapter, and --bus for tests

#include <hosts/bluez/bluetooth.h>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Zephly::tools {

/// Declares --adapter and --bus on `command`; parsing writes them into `options`, which must live
/// as long. --bus is for tests and not in the help text. Returns --adapter.
CLI::Option* addBluetoothOptions(CLI::App& command, bluez::Options& options);

/// Declares --notifications in the same way.
CLI::Option* addNotificationsOption(CLI::App& command, bluez::Options& options);

}  // namespace Zephly::tools
