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
             "). To have one: sudo apt install dbus bluez; it starts with the system.";
    case Daemon::State::silentBus:
      return "Bluetooth: the system bus does not answer. To look at it: systemctl status dbus";
    case Daemon::State::noService:
      return "Bluetooth: the service org.bluez is not there (" + reason +
             "). To have it: sudo apt install bluez; sudo systemctl enable --now bluetooth";
    case Daemon::State::noPermission:
      return "Bluetooth: this user may not use the service org.bluez (" + reason +
             "). To be allowed: sudo adduser $USER bluetooth, then log in again.";
    case Daemon::State::ready:
      break;
  }
  if (adapter.empty()) {
    const std::string which = choice.wanted().empty() ? "adapter" : "adapter " + choice.wanted();
    const std::string able = choice.onlyUnable(daemon.tree())
                                 ? " that can be a Bluetooth LE " + std::string(role)
                                 : std::string();
    return "Bluetooth: no " + which + able +
           ". Plug it in; what there is: bluetoothctl list; what the kernel says: dmesg";
  }
  if (isPowered(daemon.tree(), adapter)) return {};
  return "Bluetooth: adapter " + lastPart(adapter) +
         " is switched off. To switch it on: rfkill unblock bluetooth; bluetoothctl power on";
}

}  // namespace Zephly::bluez
