// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A connection that speaks HTTP: one request after the other, until one opens a WebSocket.
///
///   std::make_shared<Connection>(std::move(socket), peer, shared)->run();
///
/// A wrong request gets a line of text as its answer. After a request that cannot be parsed the
/// connection is closed, because the start of the next one is unknown.
///
/// States, each with one pending operation that owns the object: reading a request (run), writing
/// the response (send), then reading again, or discarding input until the client closes (hangUp).
/// A request for a WebSocket hands the socket over to a Viewer, and the Connection is destroyed.

#include <tools/view/client.h>
#include <tools/view/client_stream.h>
#include <tools/view/viewer.h>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message_generator.hpp>
#include <boost/beast/http/parser.hpp>

#include <cstdint>
#include <optional>

namespace Zephly::view {

class Connection final : public Client, public std::enable_shared_from_this<Connection> {
 public:
  /// `peer`: the address of the client.
  Connection(boost::asio::ip::tcp::socket socket, boost::asio::ip::address peer,
             std::shared_ptr<Server::Shared> shared);
  ~Connection() override;

  /// Reads and answers requests until the client closes or breaks the protocol.
  void run();

  void end() override;
  void drop() override;
  void release() override { drop(); }

  /// Closes it, so that a new client gets its slot.
  void replace();
  /// It has sent a valid request, with the token where one is needed.
  bool authorized() const { return authorized_; }
  const boost::asio::ip::address& peer() const { return peer_; }

 private:
  using Error = boost::beast::error_code;

  void received(Error error);
  void send(boost::beast::http::message_generator response);
  void hangUp();
  void discard();

  ClientStream stream_;
  boost::beast::flat_buffer buffer_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser_;
  std::size_t discarded_ = 0;
  std::uint64_t number_;
  boost::asio::ip::address peer_;
  bool authorized_ = false;
  bool replaced_ = false;
};

}  // namespace Zephly::view
