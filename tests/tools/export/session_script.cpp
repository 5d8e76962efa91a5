// SPDX-License-Identifier: MIT
#include <tests/tools/export/session_script.h>

#include <capture/codec.h>
#include <zephly/ble/gatt_profile.h>

#include <utility>

namespace exporting_test {

using namespace Zephly::capture;
using namespace std::chrono_literals;

namespace {

// In the order of the profile.
enum : std::size_t { temperatureIndex, batteryIndex, ecgIndex, respirationIndex, motionIndex };

void append(std::vector<std::uint8_t>& bytes, int number, int count, bool bigEndian) {
  for (int i = 0; i < count; ++i) {
    const int shift = 8 * (bigEndian ? count - 1 - i : i);
    bytes.push_back(static_cast<std::uint8_t>(static_cast<unsigned>(number) >> shift));
  }
}

std::vector<std::uint8_t> waveform(const std::array<int, 6>& counts) {
  std::vector<std::uint8_t> bytes;
  for (const int count : counts) append(bytes, count, 3, false);
  return bytes;
}

}  // namespace

SessionScript::SessionScript()
    : preamble{.program = "zephly 1.0",
               .source = "a strap",
               .simulated = false,
               .began = 1'772'357'400s + 250ms} {
  add(0ns, StateChanged{CBManagerState::poweredOn});
}

template <class What>
void SessionScript::add(Nanoseconds time, What what) {
  records.push_back({{time, preamble.began + time, 0}, std::move(what)});
}

void SessionScript::connect(Nanoseconds time) {
  if (!std::exchange(known_, true)) {
    add(time, Discovered{.peripheral = 1, .name = "Zephly", .localName = "Zephly", .RSSI = -50});
  }
  add(time, Connected{1});
  const ObjectId service = nextId_++;
  add(time, ServicesDiscovered{1, {{service, "0000180F-0000-1000-8000-00805F9B34FB"}}});
  CharacteristicsDiscovered found{1, service, {}, {}};
  firstCharacteristic_ = nextId_;
  for (const CBUUID& uuid : characteristics()) {
    found.characteristics.push_back({nextId_++, uuid.UUIDString(), "<characteristic>"});
  }
  add(time, found);
}

void SessionScript::disconnect(Nanoseconds time) { add(time, Disconnected{1}); }

void SessionScript::ecg(Nanoseconds time, const std::array<int, 6>& counts) {
  value(time, ecgIndex, waveform(counts));
}

void SessionScript::respiration(Nanoseconds time, const std::array<int, 6>& counts) {
  value(time, respirationIndex, waveform(counts));
}

std::vector<std::uint8_t> SessionScript::temperatureFrame(unsigned skin, unsigned ambient) {
  std::vector<std::uint8_t> bytes;
  append(bytes, static_cast<int>(skin), 2, false);
  append(bytes, static_cast<int>(ambient), 2, false);
  return bytes;
}

void SessionScript::temperature(Nanoseconds time, unsigned skin, unsigned ambient) {
  value(time, temperatureIndex, temperatureFrame(skin, ambient));
}

void SessionScript::battery(Nanoseconds time, unsigned tenthsOfPercent, bool charging) {
  std::vector<std::uint8_t> bytes;
  append(bytes, static_cast<int>(tenthsOfPercent), 2, false);
  bytes.push_back(charging ? 1 : 0);
  value(time, batteryIndex, bytes);
}

void SessionScript::motion(Nanoseconds time, const std::array<int, 4>& orientation,
                           const std::array<int, 3>& acceleration) {
  std::vector<std::uint8_t> bytes;
  for (const int component : orientation) append(bytes, component, 2, true);
  for (const int component : acceleration) append(bytes, component, 4, true);
  value(time, motionIndex, bytes);
}

void SessionScript::value(Nanoseconds time, std::size_t characteristic,
                          std::vector<std::uint8_t> bytes) {
  add(time, Value{.peripheral = 1,
                  .characteristic = firstCharacteristic_ + static_cast<ObjectId>(characteristic),
                  .bytes = std::move(bytes)});
}

void SessionScript::end(Nanoseconds time) { add(time, Ended{}); }

std::vector<std::uint8_t> SessionScript::bytes() const {
  std::vector<std::uint8_t> file = encodePreamble(preamble);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const auto record = encodeRecord(records[i], i);
    file.insert(file.end(), record.begin(), record.end());
  }
  return file;
}

}  // namespace exporting_test
