#include <zephly/ble/zephly_peripheral.h>

#include <zephly/ble/gatt_profile.h>
#include <zephly/platform/console.h>
#include <zephly/platform/fatal_error.h>
#include <zephly/protocol/frame_decoders.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace {

// Zero past the end.
unsigned char byteAt(std::string_view text, std::size_t index) {
  return index < text.size() ? static_cast<unsigned char>(text[index]) : '\0';
}

bool isC0Control(unsigned char code) { return code < 0x20 || code == 0x7F; }

bool isC1Control(unsigned char code) { return code >= 0x80 && code <= 0x9F; }

std::string escape(unsigned char code) {
  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  return {'\\', 'u', '{', hexDigits[code >> 4], hexDigits[code & 0xF], '}'};
}

// `text`, UTF-8, as a string literal in double quotes. Control characters are escaped, so that the
// result is always one line.
std::string quoted(std::string_view text) {
  std::string literal = "\"";
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char character = text[index];
    const unsigned char code = byteAt(text, index);
    const unsigned char next = byteAt(text, index + 1);
    if (character == '"' || character == '\\') {
      literal += '\\';
      literal += character;
    } else if (character == '\n') {
      literal += "\\n";
    } else if (character == '\r') {
      literal += "\\r";
    } else if (character == '\t') {
      literal += "\\t";
    } else if (isC0Control(code)) {
      literal += escape(code);
    } else if (code == 0xC2 && isC1Control(next)) {  // U+0080 to U+009F in two bytes
      literal += escape(next);
      ++index;
    } else {
      literal += character;
    }
  }
  return literal + "\"";
}

bool isInProfile(const CBUUID& uuid) {
  return std::any_of(characteristics().begin(), characteristics().end(),
                     [&uuid](const CBUUID& entry) { return uuid.isEqual(entry); });
}

}  // namespace

// The steps of one connection, each taken in the callback that answers the one before:
//
//   services -> characteristics of each service -> subscriptions -> values
//
// Nothing here counts the steps. Answers for different services may interleave, and the first value
// of a characteristic may arrive before the answer to its subscription.

ZephlyPeripheral::ZephlyPeripheral(std::weak_ptr<ZephlyPeripheralDelegate> delegate)
    : zephlyDelegate(std::move(delegate)) {}

std::shared_ptr<ZephlyPeripheral> ZephlyPeripheral::init(
    std::weak_ptr<ZephlyPeripheralDelegate> zephlyDelegate) {
  return std::shared_ptr<ZephlyPeripheral>(new ZephlyPeripheral(std::move(zephlyDelegate)));
}

std::shared_ptr<ZephlyPeripheral> ZephlyPeripheral::init() {
  Zephly::fatalError("ZephlyPeripheral.init is not available without a delegate");
}

void ZephlyPeripheral::peripheralDidDiscoverServices(
    const std::shared_ptr<CBPeripheral>& peripheral,
    const std::shared_ptr<const NSError>& /*error*/) {
  const auto services = peripheral->services();
  if (!services) Zephly::fatalError("CBPeripheral.services is absent after service discovery");
  for (const auto& service : *services) {
    peripheral->discoverCharacteristics(std::nullopt, service);
  }
}

void ZephlyPeripheral::peripheralDidDiscoverCharacteristicsForService(
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
    const std::shared_ptr<const NSError>& error) {
  if (error) {
    Zephly::console() << "Error: Optional(" << quoted(error->localizedDescription()) << ")"
                      << std::endl;
  }
  const auto found = service->characteristics();
  if (!found)
    Zephly::fatalError("CBService.characteristics is absent after characteristic discovery");
  for (const auto& characteristic : *found) {
    Zephly::console() << characteristic->description() << std::endl;
    if (isInProfile(characteristic->UUID())) peripheral->setNotifyValue(true, characteristic);
  }
}

void ZephlyPeripheral::peripheralDidUpdateNotificationStateForCharacteristic(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::shared_ptr<const NSError>& error) {
  if (!error) return;
  Zephly::console() << characteristic->UUID().description()
                    << " Error changing notification state: " << error->localizedDescription()
                    << std::endl;
}

void ZephlyPeripheral::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::shared_ptr<const NSError>& error) {
  if (error) {
    Zephly::console() << "Error reading characteristics: " << error->localizedDescription()
                      << std::endl;
    return;
  }
  const auto value = characteristic->value();  // of this notification, even if a later one arrived
  if (!value) return;

  const CBUUID uuid = characteristic->UUID();
  if (uuid.isEqual(temperatureCharacteristicUUID())) {
    const auto reading = FrameDecoders::calculateTemperatureValue(*value);
    requireDelegate()->didReceiveTemperature(reading.objectTemperature, reading.ambientTemperature);
  } else if (uuid.isEqual(ecgCharacteristicUUID())) {
    const auto samples = FrameDecoders::calculateECGValue(*value);
    requireDelegate()->didReceiveECG(samples);
  } else if (uuid.isEqual(respirationCharacteristicUUID())) {
    const auto samples = FrameDecoders::calculateECGValue(*value);
    requireDelegate()->didReceiveRespiration(samples);
  } else if (uuid.isEqual(batteryCharacteristicUUID())) {
    const auto status = FrameDecoders::calculateBatterySOCValue(*value);
    requireDelegate()->didReceiveBatteryStatus(status);
  } else if (uuid.isEqual(motionCharacteristicUUID())) {
    didReceiveIMU(*value);
  }
}

void ZephlyPeripheral::didReceiveIMU(const NSData& frame) {
  const auto [qw, qx, qy, qz, ax, ay, az] = FrameDecoders::calculateMotionValue(frame);
  requireDelegate()->didReceiveIMUValues(qw, qx, qy, qz, ax, ay, az);
}

std::shared_ptr<ZephlyPeripheralDelegate> ZephlyPeripheral::requireDelegate() const {
  auto delegate = zephlyDelegate.lock();
  if (!delegate)
    Zephly::fatalError("ZephlyPeripheral.zephlyDelegate is gone while a value is delivered");
  return delegate;
}

const Zephly::SelectorTable& ZephlyPeripheral::selectors() const {
  using Self = ZephlyPeripheral;
  static const Zephly::SelectorTable table{
      "ZephlyPeripheral",
      {Zephly::selector<&Self::peripheralDidDiscoverCharacteristicsForService>(
           "peripheral:didDiscoverCharacteristicsForService:error:"),
       Zephly::selector<&Self::peripheralDidUpdateNotificationStateForCharacteristic>(
           "peripheral:didUpdateNotificationStateForCharacteristic:error:"),
       Zephly::selector<&Self::peripheralDidUpdateValueForCharacteristic>(
           "peripheral:didUpdateValueForCharacteristic:error:"),
       Zephly::selector<&Self::peripheralDidDiscoverServices>("peripheral:didDiscoverServices:")}};
  return table;
}
