// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/hci_packets.h>

#include <cstddef>

namespace Zephly::att_strap {

std::optional<Bytes> PacketReader::next() {
  if (bytes_.empty() || lost_) return std::nullopt;
  const bool isEvent = bytes_[0] == packet::event;
  if (!isEvent && bytes_[0] != packet::data) {
    lost_ = true;
    return std::nullopt;
  }
  const std::size_t head = isEvent ? 3 : 5;
  if (bytes_.size() < head) return std::nullopt;
  const std::size_t length = head + (isEvent ? bytes_[2] : number16(bytes_, 3));
  if (bytes_.size() < length) return std::nullopt;
  const auto end = bytes_.begin() + static_cast<std::ptrdiff_t>(length);
  Bytes whole(bytes_.begin(), end);
  bytes_.erase(bytes_.begin(), end);
  return whole;
}

}  // namespace Zephly::att_strap
