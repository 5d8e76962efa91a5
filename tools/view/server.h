// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The server of the live page: HTTP for the page, WebSocket for its data.
///
///   Server server(queue.context(), {.assets = assets()}, greeting, report);
///   report("Live page: " + server.addresses().front());
///   server.send(message);     // to every viewer
///   queue.run();
///
/// All of it runs on the main queue and nothing blocks: each viewer has a ViewerQueue, so that a
/// slow one does not delay the others. Limits of size and time for every client bound the memory
/// and the work of the program.
///
/// A connection begins as a Connection, which answers HTTP requests. A WebSocket handshake hands
/// its socket over to a Viewer. Both are Clients, owned by their pending asynchronous operations:
/// the last handler that ends without starting another operation destroys the client. close() stops
/// accepting and ends the clients; the last one calls `closed`.

#include <tools/view/assets.h>
#include <tools/view/message.h>
#include <tools/view/viewer_queue.h>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace boost::asio {
class io_context;
}

namespace Zephly::view {

/// The limits of a client. Times are wall-clock times.
struct Limits {
  std::size_t headerBytes = 8192;   ///< of a request
  std::size_t bodyBytes = 1024;     ///< of a request; none needs one
  std::size_t messageBytes = 1024;  ///< of a WebSocket message from a viewer; none is needed
  std::size_t viewerBytes = 1024UL * 1024;  ///< of all input from a viewer: pings and pongs
  std::size_t queueBytes = ViewerQueue::defaultLimit;
  /// The socket's send buffer. Small, because a slow viewer reads everything in it before newer
  /// messages.
  int socketBytes = 128 * 1024;
  std::size_t clients = 128;  ///< connections of all kinds; a new one replaces an idle one
  std::size_t viewers = 64;
  /// Until a request is complete; also how long an unused connection is kept.
  std::chrono::milliseconds request = std::chrono::seconds(10);
  std::chrono::milliseconds response = std::chrono::seconds(60);
  /// For the opening and closing handshakes of a WebSocket, and until a refused client closes.
  std::chrono::milliseconds handshake = std::chrono::seconds(5);
  /// A viewer that has received nothing for this long is dropped.
  std::chrono::milliseconds stalled = std::chrono::minutes(10);
};

/// The address of the server, and what it serves.
struct ServerOptions {
  /// The port without --port.
  static constexpr std::uint16_t defaultPort = 8765;

  boost::asio::ip::address address = boost::asio::ip::address_v4::loopback();
  std::uint16_t port = defaultPort;                 ///< 0: any free port
  std::optional<std::string> token = std::nullopt;  ///< without one, no token is required
  std::span<const Asset> assets = {};
  Limits limits = {};
};

class Server {
 public:
  /// The first messages for a new viewer.
  using Greeting = std::function<std::vector<Message>()>;
  /// Gets lines for people: a viewer has connected or disconnected.
  using Report = std::function<void(std::string_view)>;

  /// Listens at once. std::runtime_error with one line for people when that is not possible.
  Server(boost::asio::io_context& context, const ServerOptions& options, Greeting greeting,
         Report report);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  /// Drops all clients. No callback follows.
  ~Server();

  std::uint16_t port() const;
  /// URLs of the page, with the token; several when it listens on all addresses.
  std::vector<std::string> addresses() const;

  /// Serves a connection that was opened elsewhere, such as one end of a pair of sockets. `peer`:
  /// the address of the client.
  void serve(boost::asio::ip::tcp::socket socket, boost::asio::ip::address peer);

  /// Queues the message for every viewer; after close() for none.
  void send(const Message& message);
  std::size_t viewers() const;

  /// Accepts no more clients, sends viewers their queued messages and closes them. `closed` is
  /// called once, on the queue, when all have disconnected.
  void close(std::function<void()> closed);

  /// The state shared by the connections.
  struct Shared;

 private:
  class Listener;

  std::shared_ptr<Shared> shared_;
  std::shared_ptr<Listener> listener_;
};

/// Why the server cannot listen there, in one line for people.
std::string listeningProblem(const boost::asio::ip::address& address, std::uint16_t port,
                             int errorNumber);

}  // namespace Zephly::view
