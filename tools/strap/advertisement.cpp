// SPDX-License-Identifier: MIT
#include <tools/strap/advertisement.h>

#include <hosts/bluez/names.h>
#include <simulator/frame.h>

#include <cstddef>
#include <utility>

namespace Zephly::peripheral {

namespace {

// Bytes of legacy advertising data: each field has its length and its type before the content.
constexpr std::size_t advertisingData = 31;
constexpr std::size_t fieldHead = 2;
constexpr std::size_t flagsField = fieldHead + 1;
constexpr std::size_t serviceField = fieldHead + 16;
static_assert(flagsField + serviceField <= advertisingData);

}  // namespace

Advertisement::Advertisement(main_queue::MainQueue& queue, bluez::Bus& bus, std::string name,
                             std::function<void()> released) {
  const auto release = [&queue, weak = std::weak_ptr<void>(alive_),
                        released = std::move(released)](const bluez::Arguments&) {
    queue.post([weak, released] {
      if (!weak.expired()) released();
    });
    return bluez::Arguments();
  };
  object_ = bus.exportObject(
      path, {{bluez::advertisementInterface,
              {{"Release", "", "", release}},
              {{"Type", "s", [] { return bluez::Value("peripheral"); }},
               {"LocalName", "s", [name = std::move(name)] { return bluez::Value(name); }},
               {"ServiceUUIDs", "as", [] {
                  return bluez::Value(bluez::Strings{simulator::serviceUUID().UUIDString()});
                }}}}});
}

}  // namespace Zephly::peripheral
