#include <simulator/frame.h>

#include <zephly/ble/gatt_profile.h>
#include <zephly/platform/fatal_error.h>

namespace Zephly::simulator {

std::string_view streamName(Stream stream) {
  switch (stream) {
    case Stream::temperature:
      return "temperature";
    case Stream::ecg:
      return "ecg";
    case Stream::battery:
      return "battery";
    case Stream::respiration:
      return "respiration";
    case Stream::motion:
      return "motion";
  }
  fatalError("a strap has five streams; this is none of them");
}

const CBUUID& characteristicUUID(Stream stream) {
  switch (stream) {
    case Stream::temperature:
      return temperatureCharacteristicUUID();
    case Stream::ecg:
      return ecgCharacteristicUUID();
    case Stream::battery:
      return batteryCharacteristicUUID();
    case Stream::respiration:
      return respirationCharacteristicUUID();
    case Stream::motion:
      return motionCharacteristicUUID();
  }
  fatalError("a strap has five streams; this is none of them");
}

const CBUUID& serviceUUID() {
  static const CBUUID uuid = CBUUID::UUIDWithString("44366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  return uuid;
}

int samplesPerFrame(Stream stream) {
  return stream == Stream::ecg || stream == Stream::respiration ? 6 : 1;
}

}  // namespace Zephly::simulator
