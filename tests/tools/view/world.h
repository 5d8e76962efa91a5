// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A server with clients, all in one process and on one thread.
///
///   World world;
///   RawClient client(world);
///   client.send("GET / HTTP/1.1\r\nHost: " + world.host() + "\r\n\r\n");
///   ASSERT_TRUE(world.runUntil([&] { return client.closed(); }));

#include <tools/view/server.h>

#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::view {

/// A server on a free port of the loopback, with a small page.
class World {
 public:
  explicit World(ServerOptions options = {});

  /// Runs the server and the clients until `condition` holds; false after a time limit.
  [[nodiscard]] bool runUntil(const std::function<bool()>& condition);

  /// The valid Host of a request.
  std::string host() const { return "127.0.0.1:" + std::to_string(server->port()); }
  boost::asio::ip::tcp::endpoint endpoint() const {
    return {boost::asio::ip::address_v4::loopback(), server->port()};
  }

  boost::asio::io_context context;
  std::vector<std::string> lines;  ///< what the server said for people
  Server::Greeting greet = [] { return std::vector<Message>(); };
  std::unique_ptr<Server> server;
};

/// A client that sends raw bytes.
class RawClient {
 public:
  /// `from`: the address of the client, one of the loopback's.
  explicit RawClient(World& world, const char* from = "127.0.0.1");
  /// Closes the connection.
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  void send(std::string text);
  /// The data received, and whether the server has closed the connection.
  const std::string& received() const { return state_->received; }
  bool closed() const { return state_->closed; }
  /// The server has closed the connection without a reset.
  bool closedCleanly() const { return state_->error == boost::asio::error::eof; }
  /// The status code of the first response; empty while there is none.
  std::string status() const;

 private:
  struct State {
    explicit State(World& world) : socket(world.context) {}
    boost::asio::ip::tcp::socket socket;
    std::array<char, 4096> part{};
    std::string received;
    boost::system::error_code error;
    bool closed = false;
  };
  static void read(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
};

/// A viewer.
class LiveClient {
 public:
  struct Options {
    std::string target = "/live";
    std::optional<std::string> host = std::nullopt;  ///< empty: the right one
    std::vector<std::pair<std::string, std::string>> headers = {};
    int receiveBuffer = 0;  ///< bytes, 0: the system's choice
    bool reads = true;      ///< from the beginning
  };
  using Stream = boost::beast::websocket::stream<boost::asio::ip::tcp::socket>;

  struct Received {
    bool binary;
    std::string bytes;
  };

  explicit LiveClient(World& world) : LiveClient(world, Options{}) {}
  LiveClient(World& world, const Options& options);
  /// Closes the connection without a close frame.
  ~LiveClient();
  LiveClient(const LiveClient&) = delete;
  LiveClient& operator=(const LiveClient&) = delete;

  bool open() const { return state_->open; }
  /// The socket has ended, or was never opened.
  bool closed() const { return state_->closed; }
  /// The response to a refused handshake.
  unsigned refusal() const { return state_->refusal; }
  /// The code that the server closed with.
  std::uint16_t closeCode() const { return state_->stream.reason().code; }
  const std::vector<Received>& messages() const { return state_->messages; }

  /// Starts to read, if it did not.
  void read() { read(state_); }
  void sendText(std::string text);
  void ping();
  bool ponged() const { return state_->ponged; }
  /// Sends raw bytes below the WebSocket protocol.
  void sendRaw(std::string bytes);

 private:
  struct State {
    explicit State(World& world) : stream(world.context) {}
    Stream stream;
    boost::beast::flat_buffer buffer;
    boost::beast::websocket::response_type response;
    std::vector<Received> messages;
    unsigned refusal = 0;
    bool open = false;
    bool closed = false;
    bool ponged = false;
  };
  static void read(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
};

/// The page that a World serves.
std::span<const Asset> testPage();

}  // namespace Zephly::view
