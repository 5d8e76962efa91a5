// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The attributes of a GATT server: services and characteristics in order.
///
///   AttributeTable table;
///   table.addService(Uuid(0x180F));
///   AttributeHandle level = table.addCharacteristic(Uuid(0x2A19), property::read, {77});

#include <tests/bluetooth/att_strap/bytes.h>
#include <zephly/platform/cb_uuid.h>

#include <cstdint>
#include <vector>

namespace Zephly::att_strap {

using AttributeHandle = std::uint16_t;

/// The type of an attribute; 16-bit identifiers are sent in short form.
class Uuid {
 public:
  explicit Uuid(std::uint16_t assigned);
  explicit Uuid(const CBUUID& uuid);

  /// 2 or 16 bytes.
  const Bytes& encoded() const { return encoded_; }
  /// Whether `encoded`, 2 or 16 bytes, is the same type; a 16-bit identifier may be in long form.
  bool matches(BytesView encoded) const;

  friend bool operator==(const Uuid&, const Uuid&) = default;

 private:
  Bytes encoded_;
};

/// Attribute types with a special meaning.
namespace type {
inline constexpr std::uint16_t primaryService = 0x2800;
inline constexpr std::uint16_t secondaryService = 0x2801;
inline constexpr std::uint16_t characteristic = 0x2803;
inline constexpr std::uint16_t clientConfiguration = 0x2902;
}  // namespace type

/// Flags of the operations that a characteristic allows.
namespace property {
inline constexpr std::uint8_t read = 0x02;
inline constexpr std::uint8_t notify = 0x10;
inline constexpr std::uint8_t indicate = 0x20;
}  // namespace property

struct Attribute {
  AttributeHandle handle;
  Uuid type;
  Bytes value;
  bool readable;
  AttributeHandle groupEnd;  ///< last handle of a service; the handle itself for other types
};

/// Handles count from 1 without a gap.
class AttributeTable {
 public:
  /// A primary service. Characteristics added later belong to it.
  void addService(const Uuid& uuid);
  /// Returns the handle of the value. A characteristic that notifies or indicates gets a client
  /// configuration, the attribute after the value.
  AttributeHandle addCharacteristic(const Uuid& uuid, std::uint8_t properties, Bytes value = {});

  const std::vector<Attribute>& attributes() const { return attributes_; }
  /// Null when there is none.
  const Attribute* find(AttributeHandle handle) const;
  /// Whether the attribute exists and is a client configuration.
  bool isClientConfiguration(AttributeHandle handle) const;
  /// The attribute must exist.
  void setValue(AttributeHandle handle, Bytes value);

 private:
  AttributeHandle add(const Uuid& uuid, Bytes value, bool readable);

  std::vector<Attribute> attributes_;
  std::size_t service_ = 0;  ///< index of the last service
};

}  // namespace Zephly::att_strap
