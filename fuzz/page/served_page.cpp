// SPDX-License-Identifier: MIT
#include <fuzz/page/served_page.h>

#include <fuzz/support/require.h>

#include <boost/asio/ip/address_v4.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace fuzz {

namespace {

namespace view = Zephly::view;
namespace ip = boost::asio::ip;
using namespace std::chrono_literals;

// The buffer of a client's socket; the system makes it larger when it is too small.
constexpr int clientBuffer = 4096;

std::span<const view::Asset> page() {
  static constexpr std::array<view::Asset, 2> assets = {
      view::Asset{"/", "text/html; charset=utf-8", "<!doctype html><title>Page</title>", false},
      view::Asset{"/assets/app-1a2b.js", "text/javascript", "run();", true}};
  return assets;
}

}  // namespace

view::Limits smallLimits() {
  view::Limits limits;
  limits.headerBytes = 512;
  limits.bodyBytes = 32;
  limits.messageBytes = 16;
  limits.viewerBytes = 1024;
  limits.queueBytes = 2048;
  limits.socketBytes = 2048;
  limits.clients = 4;
  limits.viewers = 2;
  for (auto* time : {&limits.request, &limits.response, &limits.handshake, &limits.stalled}) {
    *time = 24h;
  }
  return limits;
}

std::size_t PageClient::send(std::string_view bytes) {
  if (!open()) return 0;
  const ssize_t count =
      ::send(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count <= 0) return 0;
  sent_ += bytes.substr(0, static_cast<std::size_t>(count));
  return static_cast<std::size_t>(count);
}

bool PageClient::read() {
  bool any = false;
  std::array<char, 4096> part{};
  while (open() && reads && !ended_) {
    const ssize_t count = ::recv(descriptor_, part.data(), part.size(), MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) break;
    if (count <= 0) {
      ended_ = true;
    } else {
      received_.append(part.data(), static_cast<std::size_t>(count));
      any = true;
    }
  }
  return any;
}

void PageClient::stopSending() const {
  if (open()) ::shutdown(descriptor_, SHUT_WR);
}

void PageClient::close() {
  if (open()) ::close(std::exchange(descriptor_, -1));
}

ServedPage::ServedPage(const Settings& settings)
    : viewersAllowed_(settings.limits.viewers),
      server_(std::make_unique<view::Server>(
          context_,
          view::ServerOptions{
              .port = 0, .token = settings.token, .assets = page(), .limits = settings.limits},
          settings.greeting, [this](std::string_view line) { lines_.emplace_back(line); })),
      port_(std::to_string(server_->port())) {}

PageClient& ServedPage::connect(unsigned last) {
  std::array<int, 2> ends{};
  require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "two sockets");
  ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &clientBuffer, sizeof clientBuffer);
  PageClient& client = clients_.emplace_back(ends[0]);
  ip::tcp::socket socket(context_);
  socket.assign(ip::tcp::v4(), ends[1]);
  server_->serve(std::move(socket), ip::address_v4(ip::address_v4::bytes_type{
                                        127, 0, 0, static_cast<std::uint8_t>(last)}));
  run();
  return client;
}

void ServedPage::run() {
  for (bool more = true; more;) {
    context_.restart();
    more = context_.poll() > 0;
    for (PageClient& client : clients_) more = client.read() || more;
    if (server_) require(server_->viewers() <= viewersAllowed_, "not more viewers than allowed");
  }
}

bool ServedPage::sendAll(PageClient& client, std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t count = client.send(bytes);
    bytes.remove_prefix(count);
    run();
    if (count == 0) return false;
  }
  return true;
}

void ServedPage::close() {
  if (std::exchange(closing_, true)) return;
  server_->close([this] { ++timesClosed_; });
  run();
}

void ServedPage::closeClients() {
  for (PageClient& client : clients_) client.close();
  run();
}

void ServedPage::finish() {
  close();
  closeClients();
  require(timesClosed_ == 1, "a server without clients is closed, once");
  require(server_->viewers() == 0, "no viewer is left");
  checkReports();
}

void ServedPage::destroy() {
  lines_.clear();
  server_.reset();
  require(lines_.empty(), "no report from a server that is destroyed");
  run();
  closeClients();
}

// "Viewer 1 from 127.0.0.1 connected; 1 watching." and "Viewer 1 disconnected after 0:00:01.000; 0
// watching."
void ServedPage::checkReports() const {
  std::size_t watching = 0;
  for (const std::string& line : lines_) {
    require(std::ranges::all_of(line, [](char one) { return one >= ' ' && one <= '~'; }),
            "a report is a line of text");
    if (line.find(" connected; ") != std::string::npos) {
      ++watching;
    } else {
      require(line.find(" disconnected after ") != std::string::npos, "a report of an end");
      require(watching > 0, "only viewers disconnect");
      --watching;
    }
    require(line.find("; " + std::to_string(watching) + " watching") != std::string::npos,
            "a report counts the viewers");
  }
  require(watching == 0, "each viewer's end is reported");
}

}  // namespace fuzz
