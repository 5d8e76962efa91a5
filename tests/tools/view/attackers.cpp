// SPDX-License-Identifier: MIT
#include <tests/tools/view/attackers.h>

#include <tests/support/web_frames.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace attack {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = boost::system::error_code;
using namespace std::chrono_literals;

std::string times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

}  // namespace

std::vector<Plan> plansFor(std::uint16_t port, const std::string& token) {
  const std::string host = "Host: 127.0.0.1:" + std::to_string(port) + "\r\n";
  const std::string get = "GET / HTTP/1.1\r\n" + host;
  const std::string webSocket = "GET /live?token=" + token + " HTTP/1.1\r\n" + host +
                                "Connection: Upgrade\r\nUpgrade: websocket\r\n"
                                "Sec-WebSocket-Version: 13\r\n"
                                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
  const std::string ping =
      web::clientFrame({.kind = web::ping, .payload = std::string(web::shortLength, 'p')});
  const std::string firstFragment = web::clientFrame({.last = false});
  const std::string fragment = web::clientFrame({.kind = web::continuation, .last = false});
  return {
      {.name = "silent", .attackers = 128},
      {.name = "half request", .attackers = 20, .opening = get, .endless = "X", .pause = 5ms},
      {.name = "endless headers",
       .attackers = 8,
       .opening = get,
       .endless = times(100, "X: " + std::string(40, 'x') + "\r\n")},
      {.name = "without token",
       .attackers = 8,
       .opening = get + "\r\n",
       .endless = times(10, get + "\r\n"),
       .reads = false},
      {.name = "hasty", .attackers = 20, .leaves = true, .away = 10ms},
      // 60 of the 64 viewers.
      {.name = "deaf viewer", .attackers = 52, .opening = webSocket, .reads = false},
      {.name = "pings",
       .attackers = 4,
       .opening = webSocket,
       .waits = true,
       .endless = times(100, ping)},
      {.name = "fragments",
       .attackers = 4,
       .opening = webSocket,
       .waits = true,
       .once = firstFragment,
       .endless = times(1000, fragment)},
  };
}

// One after the other: connecting, sending, and reading if it reads. The first error ends the
// connection, and the next one begins.
class Attackers::Attacker {
 public:
  // `from`: its address, 127.0.0.`from`.
  Attacker(asio::io_context& context, std::uint16_t port, std::uint8_t from, Kind& kind)
      : plan_(kind.plan),
        count_(kind.count),
        server_(asio::ip::address_v4::loopback(), port),
        own_(asio::ip::address_v4({127, 0, 0, from}), 0),
        socket_(context),
        pause_(context) {}

  void open() {
    const unsigned connection = ++connection_;
    answer_.clear();
    opening_ = true;
    Error error;
    socket_.open(tcp::v4(), error);
    // Closed by a reset: otherwise the system would keep its ports for a minute.
    socket_.set_option(asio::socket_base::linger(true, 0), error);
    socket_.bind(own_, error);
    socket_.async_connect(server_, [this, connection](Error failure) {
      if (connection != connection_) return;
      if (failure) return again();
      ++count_.opened;
      if (plan_.leaves) return again();
      if (plan_.reads || plan_.waits) read();
      if (!plan_.opening.empty()) send(plan_.opening);
    });
  }

  // Every handler that is pending has another number then, and does nothing.
  void end() {
    ++connection_;
    Error ignored;
    pause_.cancel();
    socket_.close(ignored);
  }

 private:
  void again() {
    end();
    pause_.expires_after(plan_.away);
    pause_.async_wait([this, connection = connection_](Error error) {
      if (!error && connection == connection_) open();
    });
  }

  void closed() {
    ++count_.closed;
    again();
  }

  void read() {
    socket_.async_read_some(asio::buffer(part_),
                            [this, connection = connection_](Error error, std::size_t size) {
                              if (connection != connection_) return;
                              if (error) return closed();
                              if (opening_) take({part_.data(), size});
                              if (plan_.reads || opening_) read();
                            });
  }

  void take(std::string_view part) {
    answer_ += part;
    if (answer_.find("\r\n\r\n") == std::string::npos) return;
    opening_ = false;
    ++count_.answered;
    if (plan_.waits) send(plan_.once);
  }

  void send(const std::string& bytes) {
    asio::async_write(socket_, asio::buffer(bytes),
                      [this, connection = connection_](Error error, std::size_t size) {
                        count_.bytes += size;
                        if (connection != connection_) return;
                        // An answer may still have to be read.
                        if (error && !plan_.reads) return closed();
                        if (error || (plan_.waits && opening_)) return;
                        sendEndless();
                      });
  }

  void sendEndless() {
    if (plan_.endless.empty()) return;
    pause_.expires_after(plan_.pause);
    pause_.async_wait([this, connection = connection_](Error error) {
      if (!error && connection == connection_) send(plan_.endless);
    });
  }

  const Plan& plan_;
  Count& count_;
  tcp::endpoint server_;
  tcp::endpoint own_;
  tcp::socket socket_;
  asio::steady_timer pause_;
  std::array<char, 65536> part_{};
  std::string answer_;  // until its headers are complete
  bool opening_ = true;
  unsigned connection_ = 0;
};

Attackers::Attackers(std::uint16_t port, std::vector<Plan> plans) {
  for (Plan& plan : plans) {
    auto& kind = *kinds_.emplace_back(std::make_unique<Kind>());
    kind.plan = std::move(plan);
    for (std::size_t i = 0; i < kind.plan.attackers; ++i) {
      // Half of them have the address of the visitor.
      const auto from = static_cast<std::uint8_t>(i % 2 == 0 ? 1 : 2 + i % 7);
      attackers_.push_back(std::make_unique<Attacker>(context_, port, from, kind));
    }
  }
}

Attackers::~Attackers() { stop(); }

void Attackers::start() {
  for (const auto& attacker : attackers_) attacker->open();
  thread_ = std::thread([this] { context_.run(); });
}

void Attackers::stop() {
  if (!thread_.joinable()) return;
  asio::post(context_, [this] {
    for (const auto& attacker : attackers_) attacker->end();
  });
  thread_.join();
}

const Count& Attackers::count(std::string_view name) const {
  const auto found =
      std::ranges::find_if(kinds_, [&](const auto& kind) { return kind->plan.name == name; });
  return (*found)->count;
}

std::uint64_t Attackers::opened() const {
  std::uint64_t all = 0;
  for (const auto& kind : kinds_) all += kind->count.opened;
  return all;
}

}  // namespace attack
