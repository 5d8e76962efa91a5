#pragma once
/// @file
/// A viewer: somebody who looks at the live page, on a WebSocket.
///
///   const auto viewer = std::make_shared<Viewer>(std::move(stream), shared);
///   viewer->accept(request);
///   viewer->push(message);

#include <tools/view/client.h>
#include <tools/view/viewer_queue.h>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <chrono>

namespace Zephly::view {

/// A complete request.
using Request = boost::beast::http::request<boost::beast::http::string_body>;

class Viewer final : public Client, public std::enable_shared_from_this<Viewer> {
 public:
  Viewer(boost::beast::tcp_stream stream, std::shared_ptr<Server::Shared> shared);
  ~Viewer() override;

  /// Answers the request to become a WebSocket; what is wrong with it is told to the client.
  void accept(Request request);

  /// Sends the message when those before it have been sent.
  void push(const Message& message);

  void end() override;
  void drop() override;

 private:
  using Clock = std::chrono::steady_clock;
  using Error = boost::beast::error_code;

  void accepted(Error error);
  void read();
  void refuse();
  void sendNext();
  void written(Error error);
  void leave();

  boost::beast::websocket::stream<boost::beast::tcp_stream> stream_;
  std::string peer_;
  boost::beast::flat_buffer received_;
  ViewerQueue queue_;
  Message writing_;  // its bytes must stay while they are being sent
  bool busy_ = false;
  bool ending_ = false;       // when the queue is empty
  bool closing_ = false;      // nothing is sent any more
  std::uint64_t number_ = 0;  // 0: not let in
  Clock::time_point came_;
  Clock::time_point lastProgress_;
};

}  // namespace Zephly::view
