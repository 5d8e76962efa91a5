#pragma once
/// @file
/// The live page on the network: HTTP for the page, WebSocket for what it shows.
///
///   Server server(queue.context(), {.assets = assets()}, greeting, report);
///   report("Live page: " + server.addresses().front());
///   server.send(message);     // to every viewer
///   queue.run();
///
/// Runs on the queue's own thread and never waits: a viewer that is slow has a queue of its own
/// (see ViewerQueue). Every client has limits of size and time, so that none can keep the program
/// busy or make it grow.

#include <tools/view/assets.h>
#include <tools/view/message.h>
#include <tools/view/viewer_queue.h>

#include <boost/asio/ip/address.hpp>

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

/// What a client may use up. Times are by the clock on the wall.
struct Limits {
  std::size_t headerBytes = 8192;   ///< of a request
  std::size_t bodyBytes = 1024;     ///< of a request; none needs one
  std::size_t messageBytes = 1024;  ///< of a WebSocket message from a viewer; none is needed
  std::size_t queueBytes = ViewerQueue::defaultLimit;
  /// Bytes that the system holds for a client. What is in there is old when a slow viewer reads it.
  int socketBytes = 128 * 1024;
  std::size_t clients = 128;  ///< connections of all kinds; those beyond are closed at once
  std::size_t viewers = 64;
  /// Until a request is complete; also how long an unused connection is kept.
  std::chrono::milliseconds request = std::chrono::seconds(10);
  std::chrono::milliseconds response = std::chrono::seconds(60);
  /// For the handshakes that begin and end a WebSocket, and until a refused client hangs up.
  std::chrono::milliseconds handshake = std::chrono::seconds(5);
  /// A viewer that has taken nothing for so long is given up.
  std::chrono::milliseconds stalled = std::chrono::minutes(10);
};

/// Where and what a server serves.
struct ServerOptions {
  /// The port without --port.
  static constexpr std::uint16_t defaultPort = 8765;

  boost::asio::ip::address address = boost::asio::ip::address_v4::loopback();
  std::uint16_t port = defaultPort;                 ///< 0: any that is free
  std::optional<std::string> token = std::nullopt;  ///< without one, everybody is let in
  std::span<const Asset> assets = {};
  Limits limits = {};
};

class Server {
 public:
  /// What a newcomer gets first.
  using Greeting = std::function<std::vector<Message>()>;
  /// Gets lines for people: who comes and goes.
  using Report = std::function<void(std::string_view)>;

  /// Listens at once. std::runtime_error with one line for people when that is not possible.
  Server(boost::asio::io_context& context, const ServerOptions& options, Greeting greeting,
         Report report);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  /// Drops whoever is still connected.
  ~Server();

  std::uint16_t port() const;
  /// What to type into a browser, the token included; several when it is served everywhere.
  std::vector<std::string> addresses() const;

  /// To every viewer, now or when its turn comes.
  void send(const Message& message);
  std::size_t viewers() const;

  /// Nobody is let in any more; viewers get what waits for them and are told the end. `closed` is
  /// called once when all have gone, on the queue.
  void close(std::function<void()> closed);

  /// What the connections share.
  struct Shared;

 private:
  class Listener;

  void dropAll();

  std::shared_ptr<Shared> shared_;
  std::shared_ptr<Listener> listener_;
};

/// What stands in the way of listening there, in one line for people.
std::string listeningProblem(const boost::asio::ip::address& address, std::uint16_t port,
                             int errorNumber);

}  // namespace Zephly::view
