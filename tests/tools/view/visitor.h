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

  /// `from`: its address, 127.0.0.`from`.
  Visitor(std::uint16_t port, std::string token, std::uint8_t from = 1);
  Visitor(const Visitor&) = delete;
  Visitor& operator=(const Visitor&) = delete;
  ~Visitor();

  /// Exchanges the token for a cookie, and gets the page with it. Each is tried once. False: see
  /// problem().
  bool openPage();
  /// Gets the page once more on the connection of openPage(), which a browser keeps.
  bool openAgain();
  /// Gets the page, with the token in the address, on a connection that sends nothing for so long.
  bool openSlowly(std::chrono::milliseconds pause);
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
  /// The head of the answer to a request; connects before, if there is no connection.
  std::optional<std::string> ask(const std::string& target, const std::string& headers);
  bool getPage();
  bool fail(std::string problem);

  std::uint16_t port_;
  std::string token_;
  std::uint8_t from_;
  std::string cookie_;
  int descriptor_ = -1;
  std::string received_;  // and not used yet
  std::string problem_;
};

}  // namespace attack
