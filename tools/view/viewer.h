// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A viewer: a browser that shows the live page, connected by a WebSocket.
///
///   const auto viewer = std::make_shared<Viewer>(std::move(stream), peer, shared);
///   viewer->accept(request);
///   viewer->push(message);

#include <tools/view/client.h>
#include <tools/view/client_stream.h>
#include <tools/view/viewer_queue.h>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <chrono>
#include <optional>

namespace Zephly::view {

/// A complete request.
using Request = boost::beast::http::request<boost::beast::http::string_body>;

class Viewer final : public Client, public std::enable_shared_from_this<Viewer> {
 public:
  /// `peer`: the address of the client.
  Viewer(ClientStream stream, boost::asio::ip::address peer,
         std::shared_ptr<Server::Shared> shared);
  ~Viewer() override;

  /// Answers the WebSocket handshake; a wrong one is answered with an HTTP error.
  void accept(Request request);

  /// Queues the message. Drops a viewer whose pending write has made no progress for
  /// Limits::stalled.
  void push(const Message& message);

  void end() override;
  void drop() override;
  void release() override;

 private:
  using Clock = std::chrono::steady_clock;
  using Error = boost::beast::error_code;

  void accepted(Error error);
  void read();
  void refuse();
  void sendNext();
  void written(Error error);
  void leave();

  ClientStream socket_;
  // Until release(). Its pending operations may use the socket after that.
  std::optional<boost::beast::websocket::stream<ClientStream&>> stream_;
  boost::asio::ip::address peer_;
  boost::beast::flat_buffer received_;
  ViewerQueue queue_;
  // One write at a time: busy_ while it is pending, and writing_ keeps its bytes. ending_: close
  // the WebSocket when the queue is empty. closing_: the closing handshake or the end of the
  // connection has begun, nothing more is sent. number_ is 0 until the handshake is complete.
  Message writing_;
  bool busy_ = false;
  bool ending_ = false;
  bool closing_ = false;
  std::uint64_t number_ = 0;
  Clock::time_point connected_;
  Clock::time_point lastProgress_;
};

}  // namespace Zephly::view
