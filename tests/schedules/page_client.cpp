// SPDX-License-Identifier: MIT
#include <tests/schedules/page_client.h>

#include <tests/schedules/network.h>

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

namespace schedules {

std::string PageClient::request(std::string_view path) {
  std::string text = "GET " + std::string(path) +
                     " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(Network::port()) + "\r\n";
  if (path == "/live") {
    text +=
        "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
        "Sec-WebSocket-Key: AAECAwQFBgcICQoLDA0ODw==\r\n";
  }
  return text + "\r\n";
}

void PageClient::send(std::string_view bytes) {
  static_cast<void>(::send(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
}

void PageClient::closeSending() { ::shutdown(socket_.get(), SHUT_WR); }

std::size_t PageClient::waiting() const {
  int count = 0;
  return ::ioctl(socket_.get(), FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

void PageClient::receive(std::size_t most) {
  std::array<char, 16'384> buffer{};
  while (open() && most > 0) {
    const ssize_t count =
        ::recv(socket_.get(), buffer.data(), std::min(most, buffer.size()), MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) return close();
    received_.append(buffer.data(), static_cast<std::size_t>(count));
    most -= static_cast<std::size_t>(count);
  }
}

int PageClient::status() {
  if (status_ != 0) return status_;
  const std::size_t end = received_.find("\r\n\r\n");
  if (end == std::string::npos) return 0;
  constexpr std::string_view version = "HTTP/1.1 ";
  const char* const code = received_.data() + version.size();
  if (!received_.starts_with(version) ||
      std::from_chars(code, code + 3, status_).ec != std::errc()) {
    wrong_ = "a response without a status";
  }
  received_.erase(0, end + 4);
  return status_;
}

std::optional<web::ServerFrame> PageClient::next() {
  if (status() != 101 || !wrong_.empty()) return std::nullopt;
  auto frame = web::serverFrameIn(received_);
  if (!frame) return std::nullopt;
  if (!frame->whole || frame->masked) {
    wrong_ = "a frame that is not whole";
    return std::nullopt;
  }
  received_.erase(0, frame->size);
  return frame;
}

}  // namespace schedules
