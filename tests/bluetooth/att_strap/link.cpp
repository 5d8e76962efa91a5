// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/link.h>

#include <algorithm>
#include <utility>

namespace Zephly::att_strap {

namespace {

constexpr std::uint16_t handleMask = 0x0FFF;
// From a host 0 is the first packet of a message that must not be flushed, and 1 a continuation.
// From a controller the first packet is 2.
constexpr std::uint16_t boundaryMask = 0x3000;
constexpr std::uint16_t continued = 0x1000;
constexpr std::size_t headLength = 4;  // length and channel

}  // namespace

Link::Link(std::uint16_t handle, Buffers buffers, Handlers handlers)
    : handle_(handle), buffers_(buffers), handlers_(std::move(handlers)), room_(buffers.packets) {}

bool Link::send(std::uint16_t channel, BytesView message, std::function<void()> sent) {
  if (muted_ || queue_.size() >= longestQueue) return false;
  Message next;
  append16(next.bytes, static_cast<std::uint16_t>(message.size()));
  append16(next.bytes, channel);
  append(next.bytes, message);
  next.sent = std::move(sent);
  queue_.push_back(std::move(next));
  transmit();
  return true;
}

void Link::transmit() {
  while (!muted_ && room_ > 0 && !queue_.empty()) {
    Message& message = queue_.front();
    const BytesView rest = BytesView(message.bytes).subspan(message.taken);
    const BytesView part = rest.first(std::min(rest.size(), buffers_.packetSize));
    const std::uint16_t boundary = message.taken == 0 ? 0 : continued;
    --room_;
    message.taken += part.size();
    handlers_.transmit(static_cast<std::uint16_t>(handle_ | boundary), part);
    if (message.taken < message.bytes.size()) continue;
    const Message done = std::move(message);
    queue_.pop_front();
    if (done.sent) done.sent();
  }
}

void Link::packetsCompleted(std::size_t count) {
  room_ = std::min(room_ + count, buffers_.packets);
  transmit();
}

void Link::received(std::uint16_t handleAndFlags, BytesView payload) {
  if (muted_ || (handleAndFlags & handleMask) != handle_) return;
  if ((handleAndFlags & boundaryMask) != continued) incoming_.clear();
  append(incoming_, payload);
  if (incoming_.size() < headLength) return;
  const std::size_t length = number16(incoming_, 0);
  if (incoming_.size() < headLength + length) return;
  const Bytes whole = std::exchange(incoming_, {});
  handlers_.message(number16(whole, 2), BytesView(whole).subspan(headLength, length));
}

void Link::mute() {
  muted_ = true;
  queue_.clear();
}

}  // namespace Zephly::att_strap
