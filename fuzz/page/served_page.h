// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The server of the live page with its clients, each on a pair of sockets, on one thread: nothing
/// waits and nothing depends on the time, so that an input always has the same effect.
///
///   ServedPage page({.token = "0a1b", .limits = smallLimits()});
///   PageClient& client = page.connect(1);
///   client.send("GET / HTTP/1.1\r\nHost: " + page.host() + "\r\n\r\n");
///   page.run();
///   page.finish();                       // checks that nothing remains
///   answersIn(client.received());

#include <tools/view/server.h>

#include <boost/asio/io_context.hpp>

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// The client's end of a connection.
class PageClient {
 public:
  /// `descriptor`: its socket, which it closes.
  explicit PageClient(int descriptor) : descriptor_(descriptor) {}
  PageClient(const PageClient&) = delete;
  PageClient& operator=(const PageClient&) = delete;
  ~PageClient() { close(); }

  bool open() const { return descriptor_ >= 0; }
  /// The server has closed the connection.
  bool ended() const { return ended_; }
  /// Whether it reads; otherwise the server's data fill the buffer of the socket.
  bool reads = true;

  /// Sends as many bytes as the socket takes, and returns their number.
  std::size_t send(std::string_view bytes);
  /// Reads what there is, if it reads. True when it was something.
  bool read();
  void stopSending() const;
  void close();

  /// All bytes so far.
  const std::string& sent() const { return sent_; }
  const std::string& received() const { return received_; }

 private:
  int descriptor_;
  bool ended_ = false;
  std::string sent_;
  std::string received_;
};

/// Limits that inputs of a few hundred bytes reach. None depends on the time.
Zephly::view::Limits smallLimits();

class ServedPage {
 public:
  struct Settings {
    std::optional<std::string> token = std::nullopt;
    Zephly::view::Limits limits = smallLimits();
    Zephly::view::Server::Greeting greeting = [] { return std::vector<Zephly::view::Message>(); };
  };

  explicit ServedPage(const Settings& settings);
  ServedPage(const ServedPage&) = delete;
  ServedPage& operator=(const ServedPage&) = delete;

  /// The valid Host of a request.
  std::string host() const { return "127.0.0.1:" + port(); }
  const std::string& port() const { return port_; }
  Zephly::view::Server& server() { return *server_; }

  /// A new connection, from 127.0.0.`last`. It lives as long as this object.
  PageClient& connect(unsigned last);
  /// Until neither the server nor a client that reads has anything left to do.
  void run();
  /// Sends all of it, running the server where the socket is full. False when the server takes no
  /// more.
  bool sendAll(PageClient& client, std::string_view bytes);

  /// Begins to close the server. The clients may still read.
  void close();
  /// Closes the server and the clients, and checks what must hold at the end: the server has no
  /// client left, and has reported each viewer's beginning and end.
  void finish();
  /// The same, but destroys the server in place of closing it.
  void destroy();

 private:
  void closeClients();
  void checkReports() const;

  boost::asio::io_context context_;
  std::size_t viewersAllowed_;
  std::vector<std::string> lines_;
  int timesClosed_ = 0;
  bool closing_ = false;
  std::list<PageClient> clients_;
  std::unique_ptr<Zephly::view::Server> server_;
  std::string port_;
};

}  // namespace fuzz
