// SPDX-License-Identifier: MIT
#include <tools/view/server.h>

#include <tools/view/connection.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Zephly::view {

namespace {

namespace asio = boost::asio;
namespace ip = asio::ip;
using ip::tcp;
using Error = boost::system::error_code;

// accept() fails when no file descriptor is left. Trying again at once would only fail again and
// keep the program busy.
constexpr std::chrono::milliseconds pauseAfterFailure{100};

void check(const Error& error, const tcp::endpoint& endpoint) {
  if (!error) return;
  throw std::runtime_error(listeningProblem(endpoint.address(), endpoint.port(), error.value()));
}

// bind() accepts these, but they are not addresses of this machine.
bool isShared(const ip::address& address) {
  return address.is_multicast() || address == ip::address_v4::broadcast();
}

tcp::acceptor listen(asio::io_context& context, const tcp::endpoint& endpoint) {
  tcp::acceptor acceptor(context);
  Error error;
  if (isShared(endpoint.address())) {
    error = Error(EADDRNOTAVAIL, boost::system::generic_category());
  }
  check(error, endpoint);
  acceptor.open(endpoint.protocol(), error);
  check(error, endpoint);
  // Otherwise the port stays in use for a while after an earlier run (TIME_WAIT).
  acceptor.set_option(asio::socket_base::reuse_address(true), error);
  check(error, endpoint);
  acceptor.bind(endpoint, error);
  check(error, endpoint);
  acceptor.listen(asio::socket_base::max_listen_connections, error);
  check(error, endpoint);
  return acceptor;
}

// "127.0.0.1", "[::1]": as in a URL.
std::string bracketed(const ip::address& address) {
  return address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
}

// The address of a network interface if other machines can use it.
std::optional<ip::address> usable(const ifaddrs& interface, bool v6) {
  if (interface.ifa_addr == nullptr || (interface.ifa_flags & IFF_UP) == 0) return std::nullopt;
  ip::address address;
  if (interface.ifa_addr->sa_family == AF_INET) {
    sockaddr_in found{};
    std::memcpy(&found, interface.ifa_addr, sizeof found);
    address = ip::address_v4(ntohl(found.sin_addr.s_addr));
  } else if (v6 && interface.ifa_addr->sa_family == AF_INET6) {
    sockaddr_in6 found{};
    std::memcpy(&found, interface.ifa_addr, sizeof found);
    ip::address_v6::bytes_type bytes{};
    std::memcpy(bytes.data(), &found.sin6_addr, bytes.size());
    // A link-local address needs the name of the interface, which browsers do not accept.
    if (ip::address_v6(bytes).is_link_local()) return std::nullopt;
    address = ip::address_v6(bytes);
  } else {
    return std::nullopt;
  }
  if (address.is_loopback()) return std::nullopt;
  return address;
}

// The addresses of this machine for other machines; loopback without a network.
std::vector<ip::address> ownAddresses(bool v6) {
  std::vector<ip::address> addresses;
  ifaddrs* interfaces = nullptr;
  if (::getifaddrs(&interfaces) == 0) {
    for (const ifaddrs* interface = interfaces; interface != nullptr;
         interface = interface->ifa_next) {
      if (const auto address = usable(*interface, v6)) addresses.push_back(*address);
    }
    ::freeifaddrs(interfaces);
  }
  if (addresses.empty()) addresses.emplace_back(ip::address_v4::loopback());
  return addresses;
}

// Closes a connection for a new client; false: there are only viewers, which keep their slots. A
// connection without the token goes before one that has sent it, then one of the address with the
// most connections, then the oldest. So whoever holds connections open replaces their own, and a
// browser with the token gets in.
bool makeRoom(Server::Shared& shared) {
  if (shared.connections.empty()) return false;
  std::map<ip::address, std::size_t> perAddress;
  for (const auto& [number, connection] : shared.connections) ++perAddress[connection->peer()];
  const auto priority = [&](const auto& entry) {
    const Connection& connection = *entry.second;
    return std::pair(!connection.authorized(), perAddress[connection.peer()]);
  };
  // The first of several maxima is the oldest.
  const auto first = std::ranges::max_element(shared.connections, std::ranges::less{}, priority);
  first->second->replace();
  return true;
}

}  // namespace

/// Accepts clients. States: accepting, pausing after an error, closed. It keeps itself alive
/// through the pending accept or timer, which close() cancels.
class Server::Listener : public std::enable_shared_from_this<Listener> {
 public:
  Listener(tcp::acceptor acceptor, std::optional<std::string> token)
      : acceptor_(std::move(acceptor)),
        pause_(acceptor_.get_executor()),
        address_(acceptor_.local_endpoint().address()),
        port_(acceptor_.local_endpoint().port()),
        token_(std::move(token)) {}

  const ip::address& address() const { return address_; }
  std::uint16_t port() const { return port_; }
  const std::optional<std::string>& token() const { return token_; }
  auto executor() { return acceptor_.get_executor(); }

  void run(std::shared_ptr<Shared> shared) {
    shared_ = std::move(shared);
    accept();
  }

  void close() {
    Error error;
    acceptor_.close(error);
    pause_.cancel();
  }

  void take(tcp::socket socket, ip::address peer) {
    const std::size_t occupied = shared_->clients.size() - shared_->replaced;
    if (occupied >= shared_->limits.clients && !makeRoom(*shared_)) return;
    Error ignored;  // without the options the connection works, too
    socket.set_option(tcp::no_delay(true), ignored);
    socket.set_option(asio::socket_base::send_buffer_size(shared_->limits.socketBytes), ignored);
    std::make_shared<Connection>(std::move(socket), std::move(peer), shared_)->run();
  }

 private:
  void accept() {
    acceptor_.async_accept([self = shared_from_this()](Error error, tcp::socket socket) {
      if (!self->acceptor_.is_open()) return;
      if (error) {
        self->acceptLater();
        return;
      }
      Error unknown;  // a client that has closed already has no address
      const ip::address peer = socket.remote_endpoint(unknown).address();
      self->take(std::move(socket), peer);
      self->accept();
    });
  }

  void acceptLater() {
    pause_.expires_after(pauseAfterFailure);
    pause_.async_wait([self = shared_from_this()](Error error) {
      if (!error && self->acceptor_.is_open()) self->accept();
    });
  }

  tcp::acceptor acceptor_;
  asio::steady_timer pause_;
  ip::address address_;
  std::uint16_t port_;
  std::optional<std::string> token_;
  std::shared_ptr<Shared> shared_;
};

Server::Server(asio::io_context& context, const ServerOptions& options, Greeting greeting,
               Report report)
    : listener_(std::make_shared<Listener>(
          listen(context, tcp::endpoint(options.address, options.port)), options.token)) {
  shared_ = std::make_shared<Shared>(
      Shared{.limits = options.limits,
             .assets = options.assets,
             .access = Access(options.address, listener_->port(), options.token),
             .greeting = std::move(greeting),
             .report = std::move(report)});
  listener_->run(shared_);
}

// Without a copy of the list, which would need memory: release() destroys no other client.
Server::~Server() {
  listener_->close();
  shared_->closing = true;
  shared_->closed = nullptr;
  // The clients' handlers run later, when the owner of these callbacks may be destroyed.
  shared_->report = [](std::string_view) {};
  shared_->greeting = [] { return std::vector<Message>(); };
  for (auto next = shared_->clients.begin(); next != shared_->clients.end();) {
    Client* const client = *next++;
    client->release();
  }
}

std::uint16_t Server::port() const { return listener_->port(); }

std::vector<std::string> Server::addresses() const {
  const ip::address& address = listener_->address();
  const std::vector<ip::address> all =
      address.is_unspecified() ? ownAddresses(address.is_v6()) : std::vector<ip::address>{address};
  std::vector<std::string> texts;
  for (const ip::address& one : all) {
    std::string text = "http://" + bracketed(one) + ":" + std::to_string(port()) + "/";
    if (listener_->token()) text += "?token=" + *listener_->token();
    texts.push_back(std::move(text));
  }
  return texts;
}

void Server::serve(tcp::socket socket, ip::address peer) {
  listener_->take(std::move(socket), std::move(peer));
}

// After close() the clock of the session still ticks. Its states would delay the close frame of a
// slow viewer.
void Server::send(const Message& message) {
  if (shared_->closing) return;
  // push() may drop a viewer, which removes it from the set: iterate over a copy.
  const std::vector<Viewer*> viewers(shared_->viewers.begin(), shared_->viewers.end());
  for (Viewer* viewer : viewers) viewer->push(message);
}

std::size_t Server::viewers() const { return shared_->viewers.size(); }

void Server::close(std::function<void()> closed) {
  listener_->close();
  shared_->closing = true;
  if (shared_->clients.empty()) {
    asio::post(listener_->executor(), std::move(closed));
    return;
  }
  shared_->closed = std::move(closed);
  const std::vector<Client*> clients(shared_->clients.begin(), shared_->clients.end());
  for (Client* client : clients) client->end();
}

std::string listeningProblem(const ip::address& address, std::uint16_t port, int errorNumber) {
  const std::string where = "port " + std::to_string(port) + " of " + address.to_string();
  switch (errorNumber) {
    case EADDRINUSE:
      return where + " is in use; choose another one with --port N, or any free one with --port 0";
    case EADDRNOTAVAIL:
      return "this machine has no address " + address.to_string();
    case EACCES:
      return where + " is for administrators only; choose one above 1023 with --port N";
    default:
      return "cannot listen on " + where + ": " + std::generic_category().message(errorNumber);
  }
}

}  // namespace Zephly::view
