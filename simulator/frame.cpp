// SPDX-License-Identifier: MIT
#include <simulator/frame.h>

namespace Zephly::simulator {

const CBUUID& serviceUUID() {
  static const CBUUID uuid = CBUUID::UUIDWithString("44366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  return uuid;
}

}  // namespace Zephly::simulator
