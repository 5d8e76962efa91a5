// SPDX-License-Identifier: MIT
#include <tools/view/viewer.h>

#include <capture/text.h>
#include <zephly/protocol/strap_time.h>

#include <boost/asio/buffer.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include <utility>

namespace Zephly::view {

namespace {

namespace beast = boost::beast;
namespace websocket = beast::websocket;

std::string watching(std::size_t viewers) { return std::to_string(viewers) + " watching"; }

}  // namespace

// The states of a viewer: handshake (number_ is 0), open, closing (closing_ is set: nothing more is
// written), gone (not in shared().viewers). All of it runs on the queue's thread. At most one write
// is in flight (busy_); written() starts the next one, so messages leave in order.

Viewer::Viewer(ClientStream stream, boost::asio::ip::address peer,
               std::shared_ptr<Server::Shared> shared)
    : Client(std::move(shared)),
      socket_(std::move(stream)),
      stream_(std::in_place, socket_),
      peer_(std::move(peer)),
      queue_(Client::shared().limits.queueBytes) {}

// Whoever is still here goes with the server: there is nobody left to report it to, and a line
// would allocate memory.
Viewer::~Viewer() { shared().viewers.erase(this); }

void Viewer::accept(Request request) {
  const Limits& limits = shared().limits;
  // The timeouts of the HTTP phase would end the WebSocket; it has its own for handshakes only.
  socket_.expires_never();
  stream_->set_option(websocket::stream_base::timeout{
      limits.handshake, websocket::stream_base::none(), /*keep_alive_pings=*/false});
  stream_->read_message_max(limits.messageBytes);
  socket_.rate_policy().limit(limits.viewerBytes, socket_.socket());
  stream_->auto_fragment(false);
  // async_accept() needs the request until it is complete.
  const auto held = std::make_shared<Request>(std::move(request));
  stream_->async_accept(*held,
                        [self = shared_from_this(), held](Error error) { self->accepted(error); });
}

void Viewer::accepted(Error error) {
  if (error || shared().closing) return;
  shared().viewers.insert(this);
  number_ = ++shared().lastViewer;
  connected_ = Clock::now();
  shared().report("Viewer " + std::to_string(number_) + " from " + peer_.to_string() +
                  " connected; " + watching(shared().viewers.size()) + ".");
  read();
  for (const Message& message : shared().greeting()) push(message);
}

// Viewers send nothing but control frames, which async_read() answers itself.
void Viewer::read() {
  stream_->async_read(received_, [self = shared_from_this()](Error error, std::size_t) {
    if (error) {
      self->drop();
    } else {
      self->refuse();
    }
  });
}

void Viewer::refuse() {
  if (std::exchange(closing_, true)) return;
  stream_->async_close(websocket::close_code::unknown_data,
                       [self = shared_from_this()](Error) { self->drop(); });
}

// A browser that takes nothing for limits.stalled is disconnected. One that is merely slow loses
// messages in the queue, never the session's time.
void Viewer::push(const Message& message) {
  if (busy_ && Clock::now() - lastProgress_ > shared().limits.stalled) {
    drop();
    return;
  }
  queue_.push(message);
  sendNext();
}

void Viewer::sendNext() {
  if (busy_ || closing_) return;
  auto message = queue_.next();
  if (!message) {
    if (!ending_) return;
    closing_ = true;
    stream_->async_close(websocket::close_code::going_away,
                         [self = shared_from_this()](Error) { self->drop(); });
    return;
  }
  busy_ = true;
  lastProgress_ = Clock::now();
  writing_ = std::move(*message);
  stream_->binary(writing_.kind == Message::Kind::samples);
  stream_->async_write(
      boost::asio::buffer(*writing_.bytes),
      [self = shared_from_this()](Error error, std::size_t) { self->written(error); });
}

void Viewer::written(Error error) {
  busy_ = false;
  if (error) {
    drop();
  } else {
    sendNext();
  }
}

// Sends what is queued, then closes: sendNext() closes once the queue is empty.
void Viewer::end() {
  ending_ = true;
  // Before the handshake there are no messages to send.
  if (number_ == 0) {
    drop();
  } else {
    sendNext();
  }
}

// May be called more than once; a pending read or write then completes with an error.
void Viewer::drop() {
  closing_ = true;
  socket_.close();
  leave();
}

// Its pending operations end by later turns of the queue, if there are any.
void Viewer::release() {
  const auto self = shared_from_this();
  closing_ = true;
  shared().viewers.erase(this);
  stream_.reset();
  socket_.close();
}

void Viewer::leave() {
  if (shared().viewers.erase(this) == 0) return;
  const auto stayed = std::chrono::duration_cast<StrapTime>(Clock::now() - connected_);
  std::string line = "Viewer " + std::to_string(number_) + " disconnected after " +
                     capture::clockText(stayed) + "; " + watching(shared().viewers.size());
  if (queue_.dropped() > 0) {
    line += "; too slow, " + std::to_string(queue_.dropped()) + " messages dropped";
  }
  shared().report(line + ".");
}

}  // namespace Zephly::view
