#include <zephly/ble/gatt_profile.h>

const CBUUID& temperatureCharacteristicUUID() {
  static const CBUUID uuid = CBUUID::UUIDWithString("45366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  return uuid;
}

const CBUUID& ecgCharacteristicUUID() {
  static const CBUUID uuid = CBUUID::UUIDWithString("46366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  return uuid;
}

const CBUUID& batteryCharacteristicUUID() {
  static const CBUUID uuid = CBUUID::UUIDWithString("47366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  return uuid;
}

const CBUUID& respirationCharacteristicUUID() {
  static const CBUUID uuid = CBUUID::UUIDWithString("48366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  return uuid;
}

const CBUUID& motionCharacteristicUUID() {
  static const CBUUID uuid = CBUUID::UUIDWithString("49366E80-CF3A-11E1-9AB4-0002A5D5C51B");
  return uuid;
}

const std::vector<CBUUID>& characteristics() {
  static const std::vector<CBUUID> list = {
      temperatureCharacteristicUUID(), batteryCharacteristicUUID(), ecgCharacteristicUUID(),
      respirationCharacteristicUUID(), motionCharacteristicUUID()};
  return list;
}
