// SPDX-License-Identifier: MIT
#include <tools/common/bluetooth_options.h>

#include <tools/common/option_values.h>

#include <CLI/CLI.hpp>

#include <string>

namespace Zephly::tools {

namespace {

bluez::Notifications notificationsValue(const std::string& text) {
  if (text == "signals") return bluez::Notifications::signals;
  if (text == "descriptors") return bluez::Notifications::descriptors;
  rejectValue("--notifications", "signals or descriptors", text);
}

}  // namespace

CLI::Option* addBluetoothOptions(CLI::App& command, bluez::Options& options) {
  // Without a group an option is not in the help text.
  addValue(command, "--bus", "ADDRESS", "D-Bus address of the bus (default: the system bus)",
           [&](const std::string& text) { options.busAddress = text; })
      ->group("");
  return addValue(
      command, "--adapter", "hciN|ADDRESS",
      "The Bluetooth adapter (default: the first powered one)",
      [&](const std::string& text) { options.adapter = adapterValue("--adapter", text); });
}

CLI::Option* addNotificationsOption(CLI::App& command, bluez::Options& options) {
  return addValue(
      command, "--notifications", "signals|descriptors",
      "How bluetoothd passes on the strap's data (default: signals)",
      [&](const std::string& text) { options.notifications = notificationsValue(text); });
}

}  // namespace Zephly::tools
