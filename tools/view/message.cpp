// SPDX-License-Identifier: MIT
#include <tools/view/message.h>

#include <boost/endian/conversion.hpp>

#include <bit>
#include <utility>

namespace Zephly::view {

namespace {

constexpr std::uint8_t samplesKind = 1;
constexpr std::size_t headerSize = 24;

}  // namespace

Message samplesMessage(Trace trace, std::uint64_t index, double seconds,
                       std::span<const float> values) {
  using boost::endian::store_little_u32;
  using boost::endian::store_little_u64;
  const auto count = static_cast<std::uint32_t>(values.size() / valuesPerSample(trace));
  std::string bytes(headerSize + values.size() * sizeof(float), '\0');
  auto* position = reinterpret_cast<unsigned char*>(bytes.data());
  position[0] = samplesKind;
  position[1] = static_cast<unsigned char>(trace);
  store_little_u32(position + 4, count);
  store_little_u64(position + 8, index);
  store_little_u64(position + 16, std::bit_cast<std::uint64_t>(seconds));
  position += headerSize;
  for (const float value : values) {
    store_little_u32(position, std::bit_cast<std::uint32_t>(value));
    position += sizeof(float);
  }
  return {Message::Kind::samples, trace, count,
          std::make_shared<const std::string>(std::move(bytes))};
}

Message textMessage(Message::Kind kind, std::string json) {
  Message message;
  message.kind = kind;
  message.bytes = std::make_shared<const std::string>(std::move(json));
  return message;
}

}  // namespace Zephly::view
