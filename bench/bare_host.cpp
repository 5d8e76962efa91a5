#include <bench/bare_host.h>

#include <utility>

namespace bench {

namespace simulator = Zephly::simulator;

BareHost::BareHost() {
  for (const auto stream : simulator::allStreams) {
    characteristics_[static_cast<std::size_t>(stream)] =
        std::make_shared<BareCharacteristic>(simulator::characteristicUUID(stream));
  }
  Zephly::Host::use(this);
}

BareHost::~BareHost() { Zephly::Host::leave(this); }

std::shared_ptr<CBCentralManager> BareHost::createCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* /*queue*/,
    const std::optional<CBOptions>& /*options*/) {
  delegate_ = std::move(delegate);
  central_ = std::make_shared<BareCentral>();
  return central_;
}

void BareHost::connect() {
  delegate_.lock()->centralManagerDidConnectPeripheral(central_, peripheral_);
  handler_ = peripheral_->delegate();
}

void BareHost::deliver(simulator::Stream stream, std::shared_ptr<const NSData> value) {
  const auto& characteristic = characteristics_[static_cast<std::size_t>(stream)];
  characteristic->setValue(std::move(value));
  handler_->peripheralDidUpdateValueForCharacteristic(peripheral_, characteristic, nullptr);
}

}  // namespace bench
