// SPDX-License-Identifier: MIT
#include <hosts/bluez/status.h>

namespace Zephly::bluez {

std::string missing(const Daemon& daemon, const AdapterChoice& choice, const std::string& adapter,
                    std::string_view role) {
  const std::string& reason = daemon.reason();
  switch (daemon.state()) {
    case Daemon::State::unknown:
      return {};
    case Daemon::State::noBus:
      return "Bluetooth: no D-Bus system bus (" + reason +
             "). Install it with: sudo apt install dbus bluez";
    case Daemon::State::silentBus:
      return "Bluetooth: the system bus does not answer. To look at it: systemctl status dbus";
    case Daemon::State::noService:
      return "Bluetooth: the service org.bluez is not there (" + reason +
             "). Install and start it with: sudo apt install bluez; sudo systemctl enable --now "
             "bluetooth";
    case Daemon::State::noPermission:
      return "Bluetooth: this user may not use the service org.bluez (" + reason +
             "). Allow it with: sudo adduser $USER bluetooth, then log in again.";
    case Daemon::State::ready:
      break;
  }
  if (adapter.empty()) {
    const std::string which = choice.wanted().empty() ? "adapter" : "adapter " + choice.wanted();
    const std::string able = choice.onlyUnable(daemon.tree())
                                 ? " that can be a Bluetooth LE " + std::string(role)
                                 : std::string();
    return "Bluetooth: no " + which + able +
           ". Plug it in. To list adapters: bluetoothctl list; kernel messages: dmesg";
  }
  if (isPowered(daemon.tree(), adapter)) return {};
  return "Bluetooth: adapter " + lastPart(adapter) +
         " is switched off. To switch it on: rfkill unblock bluetooth; bluetoothctl power on";
}

}  // namespace Zephly::bluez
