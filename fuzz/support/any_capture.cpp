// SPDX-License-Identifier: MIT
#include <fuzz/support/any_capture.h>

#include <capture/bytes.h>
#include <capture/codec.h>
#include <capture/format.h>
#include <capture/record.h>
#include <tests/support/raw_record.h>
#include <zephly/ble/gatt_profile.h>
#include <fuzz/support/require.h>

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace fuzz {

namespace {

using namespace Zephly::capture;
using Bytes = std::vector<std::uint8_t>;

// One for the whole run.
class MemoryFile {
 public:
  MemoryFile()
      : descriptor_(::memfd_create("capture", MFD_CLOEXEC)),
        path_("/proc/self/fd/" + std::to_string(descriptor_)) {
    require(descriptor_ >= 0, "a file in memory");
  }

  const std::filesystem::path& path() const { return path_; }
  void hold(const Bytes& bytes) const {
    require(::ftruncate(descriptor_, 0) == 0, "an empty file in memory");
    const auto written = ::pwrite(descriptor_, bytes.data(), bytes.size(), 0);
    require(written == static_cast<ssize_t>(bytes.size()), "a file in memory");
  }

 private:
  int descriptor_;
  std::filesystem::path path_;
};

void append(Bytes& file, const Bytes& more) { file.insert(file.end(), more.begin(), more.end()); }

// A valid header and checksum around any payload.
Bytes anyRecord(Input& input, std::uint64_t sequence) {
  const std::uint32_t type = input.coin() ? 1 + input.below(12) : input.number<std::uint32_t>();
  return captures::recordOf(type, input.bytes(200), sequence);
}

const CBUUID& anyIdentifier(Input& input) {
  static const std::array<CBUUID, 6> all = {
      ecgCharacteristicUUID(),     respirationCharacteristicUUID(), temperatureCharacteristicUUID(),
      batteryCharacteristicUUID(), motionCharacteristicUUID(),      CBUUID::UUIDWithString("180D")};
  return all.at(input.below(all.size()));
}

std::optional<std::string> anyText(Input& input) {
  return input.coin() ? std::optional(input.text(12)) : std::nullopt;
}

std::vector<Listed> anyList(Input& input) {
  std::vector<Listed> list(input.below(7));
  for (Listed& one : list) {
    one = {1 + input.below(9), anyIdentifier(input).UUIDString(), input.text(6)};
  }
  return list;
}

// Few numbers, so that records refer to the same objects.
decltype(Record::what) anyWhat(Input& input) {
  const unsigned kind = input.below(16);
  const ObjectId peripheral = 1 + input.below(3);
  switch (kind) {
    case 0:
      return StateChanged{static_cast<CBManagerState>(input.below(6))};
    case 1: {
      Discovered what{.peripheral = peripheral};
      if (input.coin()) what.name = "Zephly";
      what.localName = anyText(input);
      for (unsigned i = input.below(3); i > 0; --i) {
        what.serviceUUIDs.push_back(anyIdentifier(input).UUIDString());
      }
      what.RSSI = input.number<std::int32_t>();
      return what;
    }
    case 2:
      return Connected{peripheral};
    case 3:
      return FailedToConnect{peripheral, anyText(input)};
    case 4:
      return Disconnected{peripheral, anyText(input)};
    case 5:
      return ServicesDiscovered{peripheral, anyList(input), anyText(input)};
    case 6:
      return CharacteristicsDiscovered{peripheral, 1 + input.below(9), anyList(input),
                                       anyText(input)};
    case 7:
      return SubscriptionChanged{peripheral, 1 + input.below(9), anyText(input)};
    case 8:
      return Ended{};
    default:
      Value what{.peripheral = peripheral, .characteristic = 1 + input.below(9)};
      if (input.below(8) != 0) what.bytes = input.bytes(24);
      if (input.below(8) == 0) what.error = input.text(12);
      return what;
  }
}

Bytes sensibleRecord(Input& input, std::uint64_t sequence, Stamp& stamp) {
  const unsigned clock = input.below(16);
  const std::chrono::nanoseconds step = std::chrono::milliseconds(input.byte());
  if (stamp.monotonic <= std::chrono::nanoseconds::max() - step) stamp.monotonic += step;
  stamp.processor += 20'000ULL * input.byte();
  if (clock == 0) stamp.monotonic = std::chrono::nanoseconds(input.number<std::int64_t>());
  if (clock == 1) stamp.wall = std::chrono::nanoseconds(input.number<std::int64_t>());
  if (clock == 2) stamp.processor = input.number<std::uint64_t>();
  const Record record{stamp, anyWhat(input)};
  Bytes bytes = encodeRecord(record, sequence);
  const auto payload = std::span(bytes).subspan(recordHeaderSize);
  const auto again = decodePayload(static_cast<std::uint32_t>(record.what.index() + 1),
                                   payload.first(payload.size() - checksumSize));
  require(again == record, "what is written reads back");
  return bytes;
}

}  // namespace

std::vector<std::uint8_t> captureFrom(Input& input) {
  const unsigned order = input.below(3);
  if (order == 0) return input.remaining();
  Preamble preamble;
  preamble.program = input.text(12);
  preamble.source = input.text(12);
  preamble.simulated = input.coin();
  preamble.began = std::chrono::nanoseconds(input.number<std::int64_t>());
  Bytes file = encodePreamble(preamble);
  std::uint64_t sequence = 0;
  Stamp stamp;
  while (!input.empty()) {
    const unsigned damage = input.below(32);
    if (damage == 0) sequence = input.number<std::uint64_t>();
    Bytes record = order == 1 ? anyRecord(input, sequence) : sensibleRecord(input, sequence, stamp);
    if (damage == 1) record.resize(input.byte() % record.size());
    if (damage == 2) record.at(input.byte() % record.size()) ^= 0x10U;
    if (damage == 3) append(file, record);
    append(file, record);
    ++sequence;
  }
  return file;
}

const std::filesystem::path& fileInMemory(const std::vector<std::uint8_t>& bytes) {
  static const MemoryFile file;
  file.hold(bytes);
  return file.path();
}

}  // namespace fuzz
