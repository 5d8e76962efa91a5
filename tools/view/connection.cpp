// SPDX-License-Identifier: MIT
#include <tools/view/connection.h>

#include <tools/view/responses.h>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>

#include <algorithm>
#include <utility>

namespace Zephly::view {

namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace asio = boost::asio;

// Bytes that are read from a refused client before the connection is closed anyway.
constexpr std::size_t patienceInBytes = 1024UL * 1024;

// The answer to a request that could not be read; empty when the client has closed.
std::optional<http::status> statusFor(const beast::error_code& error) {
  if (error == http::error::header_limit) return http::status::request_header_fields_too_large;
  if (error == http::error::buffer_overflow) return http::status::request_header_fields_too_large;
  if (error == http::error::body_limit) return http::status::payload_too_large;
  if (error == http::error::end_of_stream || error == http::error::partial_message) {
    return std::nullopt;
  }
  if (error.category() == make_error_code(http::error::bad_method).category()) {
    return http::status::bad_request;
  }
  return std::nullopt;
}

}  // namespace

Connection::Connection(asio::ip::tcp::socket socket, asio::ip::address peer,
                       std::shared_ptr<Server::Shared> shared)
    : Client(std::move(shared)),
      stream_(std::move(socket)),
      // Bounds what is read before the parser checks its limits.
      buffer_(Client::shared().limits.headerBytes + Client::shared().limits.bodyBytes),
      number_(++Client::shared().lastConnection),
      peer_(std::move(peer)) {
  Client::shared().connections.emplace(number_, this);
}

Connection::~Connection() {
  shared().connections.erase(number_);
  if (replaced_) --shared().replaced;
}

void Connection::run() {
  const Limits& limits = shared().limits;
  parser_.emplace();
  parser_->header_limit(static_cast<std::uint32_t>(limits.headerBytes));
  parser_->body_limit(limits.bodyBytes);
  stream_.expires_after(limits.request);
  http::async_read(
      stream_, buffer_, *parser_,
      [self = shared_from_this()](Error error, std::size_t) { self->received(error); });
}

void Connection::received(Error error) {
  if (error) {
    if (const auto status = statusFor(error)) {
      send(refusal(*status));
    } else {
      drop();
    }
    return;
  }
  const Request request = parser_->release();
  const bool full = shared().viewers.size() >= shared().limits.viewers;
  Reply reply = replyTo(request, shared().access, shared().assets, full);
  authorized_ = authorized_ || reply.authorized;
  if (!reply.becomesViewer()) {
    send(std::move(*reply.response));
  } else if (buffer_.size() > 0) {
    // A client must not send data before the handshake is complete.
    send(refusal(http::status::bad_request));
  } else {
    std::make_shared<Viewer>(std::move(stream_), peer_, sharedPointer())->accept(request);
  }
}

void Connection::send(http::message_generator response) {
  const bool goesOn = response.keep_alive();
  stream_.expires_after(shared().limits.response);
  beast::async_write(stream_, std::move(response),
                     [self = shared_from_this(), goesOn](Error error, std::size_t) {
                       if (error) {
                         self->drop();
                       } else if (goesOn && !self->shared().closing) {
                         self->run();
                       } else {
                         self->hangUp();
                       }
                     });
}

// Closing a socket with unread input resets the connection, and the client could lose the answer.
// So only the sending side is closed, and input is discarded until the client closes.
void Connection::hangUp() {
  Error error;
  stream_.socket().shutdown(asio::ip::tcp::socket::shutdown_send, error);
  stream_.expires_after(shared().limits.handshake);
  buffer_.clear();
  discard();
}

void Connection::discard() {
  constexpr std::size_t piece = 4096;
  stream_.async_read_some(buffer_.prepare(std::min(piece, buffer_.max_size())),
                          [self = shared_from_this()](Error error, std::size_t count) {
                            self->discarded_ += count;
                            if (!error && self->discarded_ < patienceInBytes) {
                              self->discard();
                            } else {
                              self->drop();
                            }
                          });
}

void Connection::end() { drop(); }

void Connection::drop() { stream_.close(); }

// The pending operation, which owns this object, ends by a later turn of the queue.
void Connection::replace() {
  shared().connections.erase(number_);
  ++shared().replaced;
  replaced_ = true;
  drop();
}

}  // namespace Zephly::view
