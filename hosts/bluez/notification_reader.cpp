// SPDX-License-Identifier: MIT
#include <hosts/bluez/notification_reader.h>

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

namespace Zephly::bluez {

namespace {

// The longest value of an attribute is 512 bytes.
constexpr std::size_t longestPacket = 1024;

bool isClosed(int descriptor) {
  pollfd state{.fd = descriptor, .events = 0, .revents = 0};
  return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace

NotificationReader::NotificationReader(main_queue::MainQueue& queue, Descriptor descriptor,
                                       std::function<void()> ready)
    : descriptor_(std::move(descriptor)),
      watch_(queue.watch(descriptor_->get(), main_queue::Interest::read, std::move(ready))) {}

std::optional<Bytes> NotificationReader::take() {
  if (ended_) return std::nullopt;
  std::array<std::uint8_t, longestPacket> packet{};
  ssize_t count = 0;
  do {
    count = ::recv(descriptor_->get(), packet.data(), packet.size(), MSG_DONTWAIT);
  } while (count < 0 && errno == EINTR);
  // recv() returns 0 for an empty value as well as at the end: only a closed peer is the end.
  const bool nothing = count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
  if (nothing) return std::nullopt;
  if (count < 0 || (count == 0 && isClosed(descriptor_->get()))) {
    ended_ = true;
    watch_.cancel();
    return std::nullopt;
  }
  return Bytes(packet.begin(), packet.begin() + count);
}

}  // namespace Zephly::bluez
