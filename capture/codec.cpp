// SPDX-License-Identifier: MIT
#include <capture/codec.h>

#include <capture/bytes.h>

#include <algorithm>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace Zephly::capture {

namespace {

// The members of each kind of record, in the order of the file. One list serves writing and
// reading.

template <class Fields>
void visit(Fields& fields, StateChanged& what) {
  fields.state(what.state);
}

template <class Fields>
void visit(Fields& fields, Discovered& what) {
  fields.number(what.peripheral);
  fields.optionalText(what.name);
  fields.optionalText(what.localName);
  fields.uuids(what.serviceUUIDs);
  fields.number(what.RSSI);
}

template <class Fields>
void visit(Fields& fields, Connected& what) {
  fields.number(what.peripheral);
}

template <class Fields>
void visit(Fields& fields, FailedToConnect& what) {
  fields.number(what.peripheral);
  fields.optionalText(what.error);
}

template <class Fields>
void visit(Fields& fields, Disconnected& what) {
  fields.number(what.peripheral);
  fields.optionalText(what.error);
}

template <class Fields>
void visit(Fields& fields, ServicesDiscovered& what) {
  fields.number(what.peripheral);
  fields.list(what.services);
  fields.optionalText(what.error);
}

template <class Fields>
void visit(Fields& fields, CharacteristicsDiscovered& what) {
  fields.number(what.peripheral);
  fields.number(what.service);
  fields.list(what.characteristics);
  fields.optionalText(what.error);
}

template <class Fields>
void visit(Fields& fields, SubscriptionChanged& what) {
  fields.number(what.peripheral);
  fields.number(what.characteristic);
  fields.optionalText(what.error);
}

template <class Fields>
void visit(Fields& fields, Value& what) {
  fields.number(what.peripheral);
  fields.number(what.characteristic);
  fields.optionalBytes(what.bytes);
  fields.optionalText(what.error);
}

template <class Fields>
void visit(Fields& /*fields*/, Ended& /*what*/) {}

// Writing and Reading have the same functions, one for each type of member; visit() calls them.
// Neither reports errors: a ByteSource remembers that bytes were missing or invalid, and the caller
// checks whole() at the end.

class Writing {
 public:
  explicit Writing(ByteSink& sink) : sink_(sink) {}

  template <std::integral Number>
  void number(Number value) {
    sink_.number(value);
  }
  void state(CBManagerState value) { sink_.number(static_cast<std::uint8_t>(value)); }
  void optionalText(const std::optional<std::string>& text) { sink_.optionalText(text); }
  void optionalBytes(const std::optional<std::vector<std::uint8_t>>& bytes) {
    sink_.number(static_cast<std::uint8_t>(bytes ? 1 : 0));
    if (!bytes) return;
    sink_.number(static_cast<std::uint32_t>(bytes->size()));
    sink_.raw(*bytes);
  }
  void uuids(const std::vector<std::string>& list) {
    sink_.number(static_cast<std::uint32_t>(list.size()));
    for (const std::string& one : list) sink_.uuid(one);
  }
  void list(const std::vector<Listed>& list) {
    sink_.number(static_cast<std::uint32_t>(list.size()));
    for (const Listed& one : list) {
      sink_.number(one.id);
      sink_.uuid(one.UUID);
      sink_.text(one.description);
    }
  }

 private:
  ByteSink& sink_;
};

class Reading {
 public:
  explicit Reading(ByteSource& source) : source_(source) {}

  template <std::integral Number>
  void number(Number& value) {
    value = source_.number<Number>();
  }
  void state(CBManagerState& value) {
    const auto number = source_.number<std::uint8_t>();
    if (number > static_cast<int>(CBManagerState::poweredOn)) source_.reject();
    value = static_cast<CBManagerState>(number);
  }
  void optionalText(std::optional<std::string>& text) { text = source_.optionalText(); }
  void optionalBytes(std::optional<std::vector<std::uint8_t>>& bytes) {
    if (!source_.flag()) return;
    const auto raw = source_.raw(source_.number<std::uint32_t>());
    bytes.emplace(raw.begin(), raw.end());
  }
  void uuids(std::vector<std::string>& list) {
    list.resize(source_.count(16));  // bytes of a UUID
    for (std::string& one : list) one = source_.uuid();
  }
  void list(std::vector<Listed>& list) {
    // Number, UUID, length of the description.
    list.resize(source_.count(4 + 16 + 4));
    for (Listed& one : list) {
      one.id = source_.number<ObjectId>();
      one.UUID = source_.uuid();
      one.description = source_.text();
    }
  }

 private:
  ByteSource& source_;
};

// The alternatives of Report are in the order of RecordType, which begins with 1.

// Creates the alternative with the index `wanted` and reads its members. An index that does not
// exist changes nothing: callers pass known types only.
template <std::size_t index = 0>
void readReport(std::size_t wanted, Reading& fields, Report& report) {
  if constexpr (index < std::variant_size_v<Report>) {
    if (index == wanted) {
      visit(fields, report.emplace<index>());
    } else {
      readReport<index + 1>(wanted, fields, report);
    }
  }
}

template <RecordType type, class Kind>
constexpr bool holds =
    std::is_same_v<std::variant_alternative_t<static_cast<std::size_t>(type) - 1, Report>, Kind>;
static_assert(holds<RecordType::stateChanged, StateChanged>);
static_assert(holds<RecordType::discovered, Discovered>);
static_assert(holds<RecordType::connected, Connected>);
static_assert(holds<RecordType::failedToConnect, FailedToConnect>);
static_assert(holds<RecordType::disconnected, Disconnected>);
static_assert(holds<RecordType::servicesDiscovered, ServicesDiscovered>);
static_assert(holds<RecordType::characteristicsDiscovered, CharacteristicsDiscovered>);
static_assert(holds<RecordType::subscriptionChanged, SubscriptionChanged>);
static_assert(holds<RecordType::value, Value>);
static_assert(holds<RecordType::ended, Ended>);

// Appends the checksum of everything before it.
std::vector<std::uint8_t> closed(ByteSink& sink) {
  sink.number(checksum(sink.bytes()));
  return sink.take();
}

void checkLength(std::size_t length, std::size_t longest, const char* what) {
  if (length > longest) {
    throw std::length_error(std::string(what) + " of " + std::to_string(length) +
                            " bytes, the longest is " + std::to_string(longest));
  }
}

}  // namespace

std::vector<std::uint8_t> encodePreamble(const Preamble& preamble) {
  ByteSink content;
  content.number(static_cast<std::int64_t>(preamble.began.count()));
  content.number(static_cast<std::uint8_t>(preamble.simulated ? 1 : 0));
  content.text(preamble.program);
  content.text(preamble.source);
  if (preamble.continues) {
    content.number(preamble.continues->part);
    content.number(preamble.continues->lost);
  }
  checkLength(content.bytes().size(), longestPreamble, "a preamble");

  ByteSink head;
  head.raw(magic);
  head.number(majorVersion);
  head.number(preamble.continues ? continuedMinorVersion : minorVersion);
  head.number(static_cast<std::uint32_t>(content.bytes().size()));
  head.number(checksum(head.bytes()));
  head.raw(content.bytes());
  return closed(head);
}

std::vector<std::uint8_t> encodeRecord(const Record& record, std::uint64_t sequence) {
  ByteSink payload;
  payload.number(static_cast<std::int64_t>(record.stamp.monotonic.count()));
  payload.number(static_cast<std::int64_t>(record.stamp.wall.count()));
  payload.number(record.stamp.processor);
  Writing fields(payload);
  // By value: visit() takes a reference that it could write to.
  std::visit([&](auto what) { visit(fields, what); }, record.what);
  checkLength(payload.bytes().size(), longestPayload, "a record");

  ByteSink whole;
  whole.raw(recordMark);
  whole.number(static_cast<std::uint32_t>(record.what.index() + 1));
  whole.number(static_cast<std::uint32_t>(payload.bytes().size()));
  whole.number(sequence);
  whole.number(checksum(whole.bytes()));
  whole.raw(payload.bytes());
  return closed(whole);
}

bool beginsLikeCapture(std::span<const std::uint8_t> bytes) {
  const std::size_t count = std::min(bytes.size(), magic.size());
  return std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count),
                    magic.begin());
}

// The magic has been compared by beginsLikeCapture(); the checksum covers it, too.
std::optional<Head> decodeHead(std::span<const std::uint8_t> bytes) {
  ByteSource source(bytes.subspan(magic.size()));
  Head head;
  head.major = source.number<std::uint16_t>();
  head.minor = source.number<std::uint16_t>();
  head.length = source.number<std::uint32_t>();
  if (source.number<std::uint32_t>() != checksum(bytes.first(headSize - checksumSize))) {
    return std::nullopt;
  }
  return head;
}

std::optional<Preamble> decodePreamble(std::uint16_t minor, std::span<const std::uint8_t> bytes) {
  ByteSource source(bytes);
  Preamble preamble;
  preamble.began = std::chrono::nanoseconds(source.number<std::int64_t>());
  preamble.simulated = source.flag();
  preamble.program = source.text();
  preamble.source = source.text();
  if (minor >= continuedMinorVersion &&
      source.left() >= sizeof(std::uint32_t) + sizeof(std::uint64_t)) {
    Continuation continuation;
    continuation.part = source.number<std::uint32_t>();
    continuation.lost = source.number<std::uint64_t>();
    if (continuation.part > 1) preamble.continues = continuation;
  }
  if (!source.whole()) return std::nullopt;
  return preamble;
}

std::optional<RecordHeader> decodeRecordHeader(std::span<const std::uint8_t> bytes) {
  if (!std::equal(recordMark.begin(), recordMark.end(), bytes.begin())) return std::nullopt;
  ByteSource source(bytes.subspan(recordMark.size()));
  RecordHeader header;
  header.type = source.number<std::uint32_t>();
  header.length = source.number<std::uint32_t>();
  header.sequence = source.number<std::uint64_t>();
  const auto stated = source.number<std::uint32_t>();
  if (stated != checksum(bytes.first(recordHeaderSize - checksumSize))) return std::nullopt;
  // The checksum is valid, but no writer of this format makes such a record.
  if (header.length > longestPayload) return std::nullopt;
  return header;
}

bool isKnown(std::uint32_t type) {
  return type >= static_cast<std::uint32_t>(RecordType::stateChanged) &&
         type <= static_cast<std::uint32_t>(RecordType::ended);
}

std::optional<Record> decodePayload(std::uint32_t type, std::span<const std::uint8_t> payload) {
  ByteSource source(payload);
  Record record;
  record.stamp.monotonic = std::chrono::nanoseconds(source.number<std::int64_t>());
  record.stamp.wall = std::chrono::nanoseconds(source.number<std::int64_t>());
  record.stamp.processor = source.number<std::uint64_t>();
  Reading fields(source);
  readReport(type - 1, fields, record.what);
  if (!source.whole()) return std::nullopt;
  return record;
}

}  // namespace Zephly::capture
