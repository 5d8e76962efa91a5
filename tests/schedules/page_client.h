// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A client of the server of `zephly view`: as much of HTTP and WebSocket as a schedule needs.
///
///   PageClient client(Network::connect());
///   client.send(PageClient::request("/live"));
///   client.receive(1000);
///   while (const auto frame = client.next()) ...

#include <hosts/main_queue/file_descriptor.h>
#include <tests/support/web_frames.h>

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace schedules {

class PageClient {
 public:
  static constexpr std::size_t everything = std::numeric_limits<std::size_t>::max();

  explicit PageClient(Zephly::main_queue::FileDescriptor socket) : socket_(std::move(socket)) {}

  /// A request for `path`, which opens a WebSocket when it is "/live".
  static std::string request(std::string_view path);

  /// What the server does not take at once is lost.
  void send(std::string_view bytes);
  /// At most `most` bytes.
  void receive(std::size_t most);
  void close() { socket_ = {}; }
  void closeSending();

  /// The connection exists, as far as the client knows.
  bool open() const { return socket_.get() >= 0; }
  /// Bytes that wait to be received.
  std::size_t waiting() const;
  /// Of the response; 0: it is not complete.
  int status();
  /// The next whole frame after a response of status 101.
  std::optional<web::ServerFrame> next();
  /// What breaks the protocol; empty: nothing.
  const std::string& wrong() const { return wrong_; }

 private:
  Zephly::main_queue::FileDescriptor socket_;
  std::string received_;
  int status_ = 0;
  std::string wrong_;
};

}  // namespace schedules
