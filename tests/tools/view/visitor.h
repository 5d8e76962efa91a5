// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Somebody who opens a live page as a browser does, waiting for each answer.
///
///   Visitor visitor(port, token);
///   ASSERT_TRUE(visitor.openPage());
///   ASSERT_TRUE(visitor.watch());
///   const auto message = visitor.next();

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace attack {

class Visitor {
 public:
  struct Message {
    bool binary;
    std::string bytes;
  };

  Visitor(std::uint16_t port, std::string token);
  Visitor(const Visitor&) = delete;
  Visitor& operator=(const Visitor&) = delete;
  ~Visitor();

  /// Exchanges the token for a cookie, and gets the page with it. Each is tried once. False: see
  /// problem().
  bool openPage();
  /// Opens the WebSocket.
  bool watch();
  /// The next message; empty when the WebSocket is closed, or nothing has come for ten seconds.
  std::optional<Message> next();

  const std::string& problem() const { return problem_; }

 private:
  bool connect();
  void close();
  bool send(const std::string& bytes);
  bool receive();
  /// The head of the answer to a request on a new connection.
  std::optional<std::string> ask(const std::string& target, const std::string& headers);
  bool fail(std::string problem);

  std::uint16_t port_;
  std::string token_;
  std::string cookie_;
  int descriptor_ = -1;
  std::string received_;  // and not used yet
  std::string problem_;
};

}  // namespace attack
