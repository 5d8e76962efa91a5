// SPDX-License-Identifier: MIT
// Captures: any file is read to its end, inspected, and replayed to a session as by `zephly
// replay`.
//
// The first byte selects how much of the file is valid, because a fuzzer cannot guess a checksum:
// raw bytes; a valid header and records with any payload, some of them truncated, repeated or with
// a wrong checksum; or valid records in any order.
//
// The file is in memory. Read errors of a disk are not covered.

#include <capture/bytes.h>
#include <capture/codec.h>
#include <capture/format.h>
#include <capture/reader.h>
#include <hosts/replay/contradiction.h>
#include <hosts/replay/record_order.h>
#include <hosts/replay/replay_host.h>
#include <tests/support/every_call.h>
#include <tests/support/raw_record.h>
#include <tests/support/session_test_access.h>
#include <tools/inspect/contents.h>
#include <tools/inspect/contents_text.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/motion/madgwick_ahrs.h>
#include <zephly/zephly.h>
#include <fuzz/support/input.h>
#include <fuzz/support/quiet.h>
#include <fuzz/support/reclaim.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <nlohmann/json.hpp>

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using fuzz::Input;
using fuzz::require;
using namespace Zephly::capture;
using Bytes = std::vector<std::uint8_t>;

// A regular file in memory, one for the whole run.
class MemoryFile {
 public:
  static const std::filesystem::path& holding(const Bytes& bytes) {
    static const MemoryFile file;
    require(::ftruncate(file.descriptor_, 0) == 0, "an empty file in memory");
    const auto written = ::pwrite(file.descriptor_, bytes.data(), bytes.size(), 0);
    require(written == static_cast<ssize_t>(bytes.size()), "a file in memory");
    return file.path_;
  }

 private:
  MemoryFile()
      : descriptor_(::memfd_create("capture", MFD_CLOEXEC)),
        path_("/proc/self/fd/" + std::to_string(descriptor_)) {
    require(descriptor_ >= 0, "a file in memory");
  }

  int descriptor_;
  std::filesystem::path path_;
};

// Making files -----------------------------------------------------------------------------------

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

Bytes makeFile(Input& input) {
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

// Reading them -----------------------------------------------------------------------------------

void requireOneLine(const CaptureError& error, std::size_t fileSize) {
  require(std::string(error.what()).find('\n') == std::string::npos, "an error is one line");
  require(error.offset() <= fileSize, "an error lies in the file");
}

void inspectAll(const std::filesystem::path& path, std::size_t fileSize) {
  Reader reader(path);
  Zephly::inspect::Contents contents;
  // Every call of next() consumes at least one byte, and reports at most two problems in it.
  for (std::size_t calls = 0;; ++calls) {
    require(calls <= 2 * fileSize + 2, "reading comes to an end");
    try {
      const auto record = reader.next();
      if (!record) break;
      contents.take(*record);
    } catch (const CaptureError& error) {
      requireOneLine(error, fileSize);
    }
  }
  require(reader.offset() <= fileSize, "the end of reading lies in the file");
  require(!reader.next(), "the end is the end");
  contents.finish();
  require(!Zephly::inspect::contentsText(contents).empty(), "contents as text");
  Zephly::tools::JsonObject json;
  Zephly::inspect::addContents(json, contents);
  require(nlohmann::json::accept(json.text()), "contents as JSON");
}

class Replay {
 public:
  explicit Replay(std::filesystem::path path) : records_(std::move(path)) {
    q0 = 1;
    q1 = q2 = q3 = 0;
    session_ = reclaim_.during([this] { return Zephly::Zephly::init(application_); });
  }
  ~Replay() { SessionTestAccess::release(*session_); }
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  void play() {
    // Six samples of respiration are the most expensive content of a record.
    int left = 64;
    while (const auto record = records_.next()) {
      if (left-- == 0) return;
      try {
        host_.deliver(*record);
      } catch (const Zephly::replay::Contradiction& contradiction) {
        throw records_.damaged(contradiction.what());
      }
    }
    static_cast<void>(records_.complaint(host_.divergences()));
  }

 private:
  fuzz::Reclaim reclaim_;
  fuzz::Quiet quiet_;
  Zephly::replay::RecordOrder records_;
  Zephly::replay::ReplayHost host_;
  std::shared_ptr<recorded::Indifferent> application_ = std::make_shared<recorded::Indifferent>();
  std::shared_ptr<Zephly::Zephly> session_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Objects that are created once and kept must not be attributed to a session.
  struct First {
    Zephly::replay::ReplayHost host;
    std::shared_ptr<Zephly::Zephly> session = Zephly::Zephly::init(nullptr);
  };
  [[maybe_unused]] static const First* const first = new First;
  Input input(data, size);
  const Bytes file = makeFile(input);
  const auto& path = MemoryFile::holding(file);
  try {
    inspectAll(path, file.size());
    Replay(path).play();
  } catch (const CaptureError& error) {
    requireOneLine(error, file.size());
  }
  return 0;
}
