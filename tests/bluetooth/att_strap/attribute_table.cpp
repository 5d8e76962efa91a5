// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/attribute_table.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace Zephly::att_strap {

namespace {

// 0000xxxx-0000-1000-8000-00805F9B34FB without the xxxx, last byte first.
constexpr std::array<std::uint8_t, 12> baseUuid = {0xFB, 0x34, 0x9B, 0x5F, 0x80, 0x00,
                                                   0x00, 0x80, 0x00, 0x10, 0x00, 0x00};

bool isShortInLongForm(BytesView encoded) {
  return encoded.size() == 16 && encoded[14] == 0 && encoded[15] == 0 &&
         std::equal(baseUuid.begin(), baseUuid.end(), encoded.begin());
}

}  // namespace

Uuid::Uuid(std::uint16_t assigned) { append16(encoded_, assigned); }

Uuid::Uuid(const CBUUID& uuid) {
  std::string digits = uuid.UUIDString();
  std::erase(digits, '-');
  encoded_ = fromHex(digits).value();
  std::reverse(encoded_.begin(), encoded_.end());
  if (isShortInLongForm(encoded_)) encoded_ = {encoded_[12], encoded_[13]};
}

bool Uuid::matches(BytesView encoded) const {
  if (encoded_.size() == 2 && isShortInLongForm(encoded)) encoded = encoded.subspan(12, 2);
  return std::equal(encoded_.begin(), encoded_.end(), encoded.begin(), encoded.end());
}

void AttributeTable::addService(const Uuid& uuid) {
  service_ = attributes_.size();
  add(Uuid(type::primaryService), uuid.encoded(), true);
}

AttributeHandle AttributeTable::addCharacteristic(const Uuid& uuid, std::uint8_t properties,
                                                  Bytes value) {
  const auto valueHandle = static_cast<AttributeHandle>(attributes_.size() + 2);
  Bytes declaration = {properties};
  append16(declaration, valueHandle);
  append(declaration, uuid.encoded());
  add(Uuid(type::characteristic), std::move(declaration), true);
  add(uuid, std::move(value), (properties & property::read) != 0);
  if ((properties & (property::notify | property::indicate)) != 0) {
    add(Uuid(type::clientConfiguration), {0, 0}, true);
  }
  return valueHandle;
}

AttributeHandle AttributeTable::add(const Uuid& uuid, Bytes value, bool readable) {
  const auto handle = static_cast<AttributeHandle>(attributes_.size() + 1);
  attributes_.push_back({handle, uuid, std::move(value), readable, handle});
  attributes_[service_].groupEnd = handle;
  return handle;
}

const Attribute* AttributeTable::find(AttributeHandle handle) const {
  return handle == 0 || handle > attributes_.size() ? nullptr : &attributes_[handle - 1U];
}

bool AttributeTable::isClientConfiguration(AttributeHandle handle) const {
  const Attribute* attribute = find(handle);
  return attribute != nullptr && attribute->type == Uuid(type::clientConfiguration);
}

void AttributeTable::setValue(AttributeHandle handle, Bytes value) {
  attributes_.at(handle - 1U).value = std::move(value);
}

}  // namespace Zephly::att_strap
