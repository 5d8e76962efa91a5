// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/att_server.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Zephly::att_strap {

namespace {

namespace opcode {
constexpr std::uint8_t errorResponse = 0x01;
constexpr std::uint8_t exchangeMtu = 0x02;
constexpr std::uint8_t findInformation = 0x04;
constexpr std::uint8_t findByTypeValue = 0x06;
constexpr std::uint8_t readByType = 0x08;
constexpr std::uint8_t read = 0x0A;
constexpr std::uint8_t readBlob = 0x0C;
constexpr std::uint8_t readByGroupType = 0x10;
constexpr std::uint8_t write = 0x12;
constexpr std::uint8_t notification = 0x1B;
constexpr std::uint8_t confirmation = 0x1E;
constexpr std::uint8_t commandFlag = 0x40;
}  // namespace opcode

constexpr std::uint16_t notifyFlag = 0x0001;

// The opcode of a response is that of its request plus one.
std::uint8_t responseTo(BytesView pdu) { return static_cast<std::uint8_t>(pdu[0] + 1U); }

Bytes errorResponse(BytesView pdu, AttributeHandle handle, std::uint8_t error) {
  Bytes response = {opcode::errorResponse, pdu[0]};
  append16(response, handle);
  response.push_back(error);
  return response;
}

// The minimum length of each kind of request; empty for a kind that this server does not support.
std::optional<std::size_t> shortest(std::uint8_t code) {
  switch (code) {
    case opcode::exchangeMtu:
    case opcode::read:
    case opcode::write:
      return 3;
    case opcode::findInformation:
    case opcode::readBlob:
      return 5;
    case opcode::findByTypeValue:
    case opcode::readByType:
    case opcode::readByGroupType:
      return 7;
    default:
      return std::nullopt;
  }
}

// Requests over a range of handles carry the first and the last handle after the opcode.
bool hasRange(std::uint8_t code) {
  return code == opcode::findInformation || code == opcode::findByTypeValue ||
         code == opcode::readByType || code == opcode::readByGroupType;
}

std::vector<const Attribute*> inRange(const AttributeTable& table, BytesView pdu) {
  std::vector<const Attribute*> found;
  for (const Attribute& attribute : table.attributes()) {
    if (attribute.handle >= number16(pdu, 1) && attribute.handle <= number16(pdu, 3)) {
      found.push_back(&attribute);
    }
  }
  return found;
}

// A response that is a list of entries of equal length, as many as fit. The first entry determines
// the length.
class EntryList {
 public:
  EntryList(std::uint8_t code, std::uint16_t mtu) : bytes_{code, 0}, mtu_(mtu) {}

  // False when the entry does not fit or has another length.
  bool add(BytesView entry) {
    if (length_ == 0) length_ = entry.size();
    if (entry.size() != length_ || bytes_.size() + length_ > mtu_) return false;
    append(bytes_, entry);
    return true;
  }

  bool empty() const { return length_ == 0; }

  // `head` precedes the entries and describes them.
  Bytes finish(std::size_t head) {
    bytes_[1] = static_cast<std::uint8_t>(head);
    return std::move(bytes_);
  }
  Bytes finish() { return finish(length_); }

 private:
  Bytes bytes_;
  std::size_t mtu_;
  std::size_t length_ = 0;
};

}  // namespace

AttServer::AttServer(AttributeTable table, std::uint16_t largestMtu)
    : table_(std::move(table)), largestMtu_(std::max(largestMtu, defaultMtu)) {}

std::optional<Bytes> AttServer::answer(BytesView pdu) {
  if (pdu.empty() || (pdu[0] & opcode::commandFlag) != 0 || pdu[0] == opcode::confirmation) {
    return std::nullopt;
  }
  const auto length = shortest(pdu[0]);
  if (!length) return errorResponse(pdu, 0, att_error::requestNotSupported);
  if (pdu.size() < *length) return errorResponse(pdu, 0, att_error::invalidPdu);
  return dispatch(pdu);
}

Bytes AttServer::dispatch(BytesView pdu) {
  if (hasRange(pdu[0]) && (number16(pdu, 1) == 0 || number16(pdu, 1) > number16(pdu, 3))) {
    return errorResponse(pdu, number16(pdu, 1), att_error::invalidHandle);
  }
  switch (pdu[0]) {
    case opcode::exchangeMtu:
      return exchangeMtu(pdu);
    case opcode::findInformation:
      return findInformation(pdu);
    case opcode::findByTypeValue:
      return findByTypeValue(pdu);
    case opcode::readByType:
      return readByType(pdu);
    case opcode::readByGroupType:
      return readByGroupType(pdu);
    case opcode::read:
      return read(pdu, 0);
    case opcode::readBlob:
      return read(pdu, number16(pdu, 3));
    default:
      return write(pdu);
  }
}

Bytes AttServer::exchangeMtu(BytesView pdu) {
  mtu_ = std::clamp(number16(pdu, 1), defaultMtu, largestMtu_);
  Bytes response = {responseTo(pdu)};
  append16(response, largestMtu_);
  return response;
}

Bytes AttServer::findInformation(BytesView pdu) const {
  constexpr std::size_t shortForm = 1;
  constexpr std::size_t longForm = 2;
  EntryList list(responseTo(pdu), mtu_);
  std::size_t form = shortForm;
  for (const Attribute* attribute : inRange(table_, pdu)) {
    if (list.empty()) form = attribute->type.encoded().size() == 2 ? shortForm : longForm;
    Bytes entry;
    append16(entry, attribute->handle);
    append(entry, attribute->type.encoded());
    if (!list.add(entry)) break;
  }
  if (list.empty()) return errorResponse(pdu, number16(pdu, 1), att_error::attributeNotFound);
  return list.finish(form);
}

Bytes AttServer::findByTypeValue(BytesView pdu) const {
  constexpr std::size_t entryLength = 4;
  const BytesView value = pdu.subspan(7);
  Bytes response = {responseTo(pdu)};
  for (const Attribute* attribute : inRange(table_, pdu)) {
    if (response.size() + entryLength > mtu_) break;
    if (!attribute->type.matches(pdu.subspan(5, 2)) ||
        !std::equal(value.begin(), value.end(), attribute->value.begin(), attribute->value.end())) {
      continue;
    }
    append16(response, attribute->handle);
    append16(response, attribute->groupEnd);
  }
  if (response.size() == 1) {
    return errorResponse(pdu, number16(pdu, 1), att_error::attributeNotFound);
  }
  return response;
}

Bytes AttServer::readByType(BytesView pdu) const {
  if (pdu.size() != 7 && pdu.size() != 21) return errorResponse(pdu, 0, att_error::invalidPdu);
  constexpr std::size_t longestEntry = 255;
  EntryList list(responseTo(pdu), mtu_);
  for (const Attribute* attribute : inRange(table_, pdu)) {
    if (!attribute->type.matches(pdu.subspan(5))) continue;
    if (!attribute->readable) {
      if (!list.empty()) break;
      return errorResponse(pdu, attribute->handle, att_error::readNotPermitted);
    }
    Bytes entry;
    append16(entry, attribute->handle);
    append(entry, attribute->value);
    // A value that does not fit is truncated; the client reads the rest.
    entry.resize(std::min({entry.size(), static_cast<std::size_t>(mtu_ - 2U), longestEntry}));
    if (!list.add(entry)) break;
  }
  if (list.empty()) return errorResponse(pdu, number16(pdu, 1), att_error::attributeNotFound);
  return list.finish();
}

Bytes AttServer::readByGroupType(BytesView pdu) const {
  if (pdu.size() != 7 && pdu.size() != 21) return errorResponse(pdu, 0, att_error::invalidPdu);
  const BytesView group = pdu.subspan(5);
  if (!Uuid(type::primaryService).matches(group) && !Uuid(type::secondaryService).matches(group)) {
    return errorResponse(pdu, number16(pdu, 1), att_error::unsupportedGroupType);
  }
  EntryList list(responseTo(pdu), mtu_);
  for (const Attribute* attribute : inRange(table_, pdu)) {
    if (!attribute->type.matches(group)) continue;
    Bytes entry;
    append16(entry, attribute->handle);
    append16(entry, attribute->groupEnd);
    append(entry, attribute->value);
    if (!list.add(entry)) break;
  }
  if (list.empty()) return errorResponse(pdu, number16(pdu, 1), att_error::attributeNotFound);
  return list.finish();
}

Bytes AttServer::read(BytesView pdu, std::size_t offset) const {
  const AttributeHandle handle = number16(pdu, 1);
  const Attribute* attribute = table_.find(handle);
  if (attribute == nullptr) return errorResponse(pdu, handle, att_error::invalidHandle);
  if (!attribute->readable) return errorResponse(pdu, handle, att_error::readNotPermitted);
  if (offset > attribute->value.size()) {
    return errorResponse(pdu, handle, att_error::invalidOffset);
  }
  const BytesView rest = BytesView(attribute->value).subspan(offset);
  Bytes response = {responseTo(pdu)};
  append(response, rest.first(std::min(rest.size(), static_cast<std::size_t>(mtu_ - 1U))));
  return response;
}

Bytes AttServer::write(BytesView pdu) {
  const AttributeHandle handle = number16(pdu, 1);
  if (table_.find(handle) == nullptr) return errorResponse(pdu, handle, att_error::invalidHandle);
  if (!table_.isClientConfiguration(handle)) {
    return errorResponse(pdu, handle, att_error::writeNotPermitted);
  }
  if (pdu.size() != 5) return errorResponse(pdu, handle, att_error::invalidLength);
  const auto value = static_cast<AttributeHandle>(handle - 1U);
  if (const auto refused = refused_.find(value); refused != refused_.end()) {
    return errorResponse(pdu, handle, refused->second);
  }
  const bool before = isSubscribed(value);
  table_.setValue(handle, Bytes(pdu.begin() + 3, pdu.end()));
  const bool after = isSubscribed(value);
  if (before != after && onSubscription_) onSubscription_(value, after);
  return {responseTo(pdu)};
}

Step AttServer::stepOf(BytesView pdu) const {
  if (pdu.size() < 3) return Step::other;
  switch (pdu[0]) {
    case opcode::findInformation:
    case opcode::findByTypeValue:
    case opcode::readByGroupType:
      return Step::discovery;
    case opcode::readByType:
      // Reading declarations is discovery; reading a value by its type is not.
      return pdu.size() == 7 && number16(pdu, 5) >= type::primaryService &&
                     number16(pdu, 5) <= type::characteristic
                 ? Step::discovery
                 : Step::other;
    case opcode::write:
      return table_.isClientConfiguration(number16(pdu, 1)) && pdu.size() == 5 &&
                     number16(pdu, 3) == notifyFlag
                 ? Step::subscription
                 : Step::other;
    default:
      return Step::other;
  }
}

Bytes AttServer::notification(AttributeHandle value, BytesView bytes) {
  Bytes pdu = {opcode::notification};
  append16(pdu, value);
  append(pdu, bytes);
  return pdu;
}

void AttServer::onSubscription(std::function<void(AttributeHandle, bool)> callback) {
  onSubscription_ = std::move(callback);
}

bool AttServer::isSubscribed(AttributeHandle value) const {
  const auto handle = static_cast<AttributeHandle>(value + 1U);
  const Attribute* configuration = table_.find(handle);
  return configuration != nullptr && table_.isClientConfiguration(handle) &&
         (number16(configuration->value, 0) & notifyFlag) != 0;
}

void AttServer::refuseSubscription(AttributeHandle value, std::optional<std::uint8_t> error) {
  if (error) {
    refused_[value] = *error;
  } else {
    refused_.erase(value);
  }
}

void AttServer::clientGone() {
  mtu_ = defaultMtu;
  for (const Attribute& attribute : table_.attributes()) {
    if (table_.isClientConfiguration(attribute.handle)) table_.setValue(attribute.handle, {0, 0});
  }
}

}  // namespace Zephly::att_strap
