// SPDX-License-Identifier: MIT
#include <tests/tools/view/world.h>

#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <gtest/gtest.h>

#include <chrono>

namespace Zephly::view {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using Error = boost::system::error_code;

ServerOptions onAFreePort(ServerOptions options) {
  options.port = 0;
  options.assets = testPage();
  return options;
}

}  // namespace

std::span<const Asset> testPage() {
  static constexpr std::array<Asset, 3> page = {
      Asset{"/", "text/html; charset=utf-8", "<!doctype html><title>Page</title>", false},
      Asset{"/assets/app-1a2b.js", "text/javascript", "run();", true},
      Asset{"/assets/icon.svg", "image/svg+xml", {"<svg>\0</svg>", 12}, false}};
  return page;
}

World::World(ServerOptions options)
    : server(std::make_unique<Server>(
          context, onAFreePort(std::move(options)), [this] { return greet(); },
          [this](std::string_view line) { lines.emplace_back(line); })) {}

bool World::runUntil(const std::function<bool()>& condition) {
  constexpr std::chrono::seconds patience{30};
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (context.stopped()) context.restart();
    context.run_one_for(std::chrono::milliseconds(100));
  }
  return true;
}

RawClient::RawClient(World& world, const char* from) : state_(std::make_shared<State>(world)) {
  state_->socket.open(asio::ip::tcp::v4());
  state_->socket.bind({asio::ip::make_address(from), 0});
  state_->socket.connect(world.endpoint());
  read(state_);
}

RawClient::~RawClient() {
  Error ignored;
  state_->socket.close(ignored);
}

void RawClient::read(const std::shared_ptr<State>& state) {
  state->socket.async_read_some(asio::buffer(state->part), [state](Error error, std::size_t count) {
    state->received.append(state->part.data(), count);
    state->error = error;
    state->closed = error.failed();
    if (!error) read(state);
  });
}

void RawClient::send(std::string text) {
  const auto held = std::make_shared<std::string>(std::move(text));
  asio::async_write(state_->socket, asio::buffer(*held),
                    [held, state = state_](Error, std::size_t) {});
}

std::string RawClient::status() const {
  constexpr std::string_view version = "HTTP/1.1 ";
  if (state_->received.rfind(version, 0) != 0) return {};
  return state_->received.substr(version.size(), 3);
}

LiveClient::LiveClient(World& world, const Options& options)
    : state_(std::make_shared<State>(world)) {
  auto& socket = state_->stream.next_layer();
  socket.open(asio::ip::tcp::v4());
  if (options.receiveBuffer > 0) {
    socket.set_option(asio::socket_base::receive_buffer_size(options.receiveBuffer));
  }
  socket.connect(world.endpoint());
  const auto headers = options.headers;
  state_->stream.set_option(
      websocket::stream_base::decorator([headers](websocket::request_type& request) {
        for (const auto& [name, value] : headers) request.insert(name, value);
      }));
  state_->stream.control_callback(
      [state = std::weak_ptr(state_)](websocket::frame_type kind, beast::string_view) {
        const auto standing = state.lock();
        if (standing && kind == websocket::frame_type::pong) standing->ponged = true;
      });
  state_->stream.async_handshake(state_->response, options.host.value_or(world.host()),
                                 options.target,
                                 [state = state_, reads = options.reads](Error error) {
                                   state->open = !error;
                                   state->closed = error.failed();
                                   if (error == websocket::error::upgrade_declined) {
                                     state->refusal = state->response.result_int();
                                   }
                                   if (!error && reads) read(state);
                                 });
}

LiveClient::~LiveClient() {
  Error ignored;
  state_->stream.next_layer().close(ignored);
}

void LiveClient::read(const std::shared_ptr<State>& state) {
  state->stream.async_read(state->buffer, [state](Error error, std::size_t) {
    if (error) {
      state->closed = true;
      return;
    }
    state->messages.push_back(
        {state->stream.got_binary(), beast::buffers_to_string(state->buffer.data())});
    state->buffer.clear();
    read(state);
  });
}

void LiveClient::sendText(std::string text) {
  const auto held = std::make_shared<std::string>(std::move(text));
  state_->stream.text(true);
  state_->stream.async_write(asio::buffer(*held), [held, state = state_](Error, std::size_t) {});
}

void LiveClient::ping() {
  state_->stream.async_ping({}, [state = state_](Error) {});
}

void LiveClient::sendRaw(std::string bytes) {
  const auto held = std::make_shared<std::string>(std::move(bytes));
  asio::async_write(state_->stream.next_layer(), asio::buffer(*held),
                    [held, state = state_](Error, std::size_t) {});
}

}  // namespace Zephly::view
