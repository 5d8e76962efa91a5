// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Attackers of a live page, all on one thread: each opens a connection, misuses it, and opens the
/// next one soon after it is closed. The pauses leave the program some of the processor, for which
/// attackers on the same machine compete as well.
///
///   Attackers attackers(port, token);
///   attackers.start();
///   ...
///   attackers.stop();
///   attackers.count("silent").closed;   // connections that the server has closed

#include <boost/asio/io_context.hpp>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace attack {

/// What one kind of attacker does with a connection.
struct Plan {
  std::string name;
  std::size_t attackers;
  std::string opening = {};  ///< sent at once
  /// Sends nothing more until the answer to `opening` is complete, as for a WebSocket.
  bool waits = false;
  std::string once = {};               ///< sent after that answer
  std::string endless = {};            ///< then sent again and again; empty: nothing
  std::chrono::milliseconds pause{2};  ///< before each `endless`
  bool reads = true;                   ///< whatever the server sends
  bool leaves = false;                 ///< closes the connection at once
  std::chrono::milliseconds away{50};  ///< until the next connection
};

/// Of all attackers of one kind.
struct Count {
  std::atomic<std::uint64_t> opened = 0;
  std::atomic<std::uint64_t> closed = 0;    ///< by the server
  std::atomic<std::uint64_t> answered = 0;  ///< connections with an answer
  std::atomic<std::uint64_t> bytes = 0;     ///< sent
};

/// The attackers of this test. Those with the token open WebSockets.
std::vector<Plan> plansFor(std::uint16_t port, const std::string& token);

class Attackers {
 public:
  Attackers(std::uint16_t port, std::vector<Plan> plans);
  Attackers(const Attackers&) = delete;
  Attackers& operator=(const Attackers&) = delete;
  ~Attackers();

  void start();
  /// Closes all connections.
  void stop();

  /// May be called at any time.
  const Count& count(std::string_view name) const;
  std::uint64_t opened() const;

 private:
  class Attacker;
  struct Kind {
    Plan plan;
    Count count;
  };

  std::vector<std::unique_ptr<Kind>> kinds_;
  boost::asio::io_context context_;
  std::vector<std::unique_ptr<Attacker>> attackers_;
  std::thread thread_;
};

}  // namespace attack
