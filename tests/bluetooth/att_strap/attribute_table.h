#pragma once
/// @file
/// The attributes of a GATT server: services and characteristics, one after the other.
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

/// Which kind of thing an attribute is; 16-bit identifiers stay short on the air.
class Uuid {
 public:
  explicit Uuid(std::uint16_t assigned);
  explicit Uuid(const CBUUID& uuid);

  /// 2 or 16 bytes.
  const Bytes& encoded() const { return encoded_; }
  /// Whether `encoded`, 2 or 16 bytes, means the same; a 16-bit identifier may come in long form.
  bool matches(BytesView encoded) const;

  friend bool operator==(const Uuid&, const Uuid&) = default;

 private:
  Bytes encoded_;
};

/// Attribute types with a meaning of their own.
namespace type {
inline constexpr std::uint16_t primaryService = 0x2800;
inline constexpr std::uint16_t secondaryService = 0x2801;
inline constexpr std::uint16_t characteristic = 0x2803;
inline constexpr std::uint16_t clientConfiguration = 0x2902;
}  // namespace type

/// What a characteristic allows, to be combined.
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
  AttributeHandle groupEnd;  ///< last handle of the service; for others their own handle
};

/// Handles count from 1 without a gap.
class AttributeTable {
 public:
  /// A primary service; what is added from now on belongs to it.
  void addService(const Uuid& uuid);
  /// Returns the handle of the value. One that notifies or indicates gets a client configuration,
  /// the attribute behind the value.
  AttributeHandle addCharacteristic(const Uuid& uuid, std::uint8_t properties, Bytes value = {});

  const std::vector<Attribute>& attributes() const { return attributes_; }
  /// Null when there is none.
  const Attribute* find(AttributeHandle handle) const;
  /// Whether the attribute is there and is a client configuration.
  bool isClientConfiguration(AttributeHandle handle) const;
  /// Of an attribute that is there.
  void setValue(AttributeHandle handle, Bytes value);

 private:
  AttributeHandle add(const Uuid& uuid, Bytes value, bool readable);

  std::vector<Attribute> attributes_;
  std::size_t service_ = 0;  ///< place of the last service
};

}  // namespace Zephly::att_strap
