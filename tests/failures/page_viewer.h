// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A viewer of the live page, in a thread.
///
///   PageViewer viewer(8765);
///   ...                                // the program ends
///   EXPECT_TRUE(viewer.finish());

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>

namespace failures {

class PageViewer {
 public:
  explicit PageViewer(std::uint16_t port)
      : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), thread_([this, port] {
          if (join(port)) watch();
          ::close(socket_);
        }) {}
  PageViewer(const PageViewer&) = delete;
  PageViewer& operator=(const PageViewer&) = delete;
  ~PageViewer() { finish(); }

  /// Waits until the connection has ended. Whether the page has accepted the viewer.
  bool finish() {
    if (thread_.joinable()) thread_.join();
    return accepted_;
  }

 private:
  bool join(std::uint16_t port) const {
    // Whatever fails, the thread ends.
    const timeval limit{.tv_sec = 10, .tv_usec = 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string request = "GET /live HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                                "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                                "Sec-WebSocket-Version: 13\r\n"
                                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
    return ::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           send(request);
  }

  bool send(std::string_view bytes) const {
    return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }

  // Up to the close frame "going away", which it answers (RFC 6455), or the end of the connection.
  void watch() {
    constexpr std::string_view goingAway = "\x88\x02\x03\xE9";
    std::string received;
    std::array<char, 65536> part{};
    for (ssize_t count = 0; (count = ::recv(socket_, part.data(), part.size(), 0)) > 0;) {
      received.append(part.data(), static_cast<std::size_t>(count));
      if (received.starts_with("HTTP/1.1 101")) accepted_ = true;
      if (!received.ends_with(goingAway)) continue;
      static_cast<void>(send("\x88\x82" + std::string(4, '\0') + "\x03\xE9"));
      return;
    }
  }

  int socket_;
  std::atomic<bool> accepted_ = false;
  std::thread thread_;
};

}  // namespace failures
