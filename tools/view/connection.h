#pragma once
/// @file
/// A connection that speaks HTTP: one request after the other, until one makes a viewer of it.
///
///   std::make_shared<Connection>(std::move(socket), shared)->run();
///
/// What is wrong with a request is answered with a line of text; where the rest of it cannot be
/// trusted any more the connection is closed.

#include <tools/view/client.h>
#include <tools/view/viewer.h>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message_generator.hpp>
#include <boost/beast/http/parser.hpp>

#include <optional>

namespace Zephly::view {

class Connection final : public Client, public std::enable_shared_from_this<Connection> {
 public:
  Connection(boost::asio::ip::tcp::socket socket, std::shared_ptr<Server::Shared> shared);

  /// Reads and answers until the client or one of its faults ends it.
  void run();

  void end() override;
  void drop() override;

 private:
  using Error = boost::beast::error_code;

  void received(Error error);
  void send(boost::beast::http::message_generator response);
  void hangUp();
  void discard();

  boost::beast::tcp_stream stream_;
  boost::beast::flat_buffer buffer_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser_;
  std::size_t discarded_ = 0;
};

}  // namespace Zephly::view
