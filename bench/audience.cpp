// SPDX-License-Identifier: MIT
#include <bench/audience.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <boost/endian/conversion.hpp>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;

void note(Account& account, const std::string& message, bool binary) {
  if (binary) {
    constexpr std::size_t countAt = 4;
    const auto* bytes = reinterpret_cast<const unsigned char*>(message.data());
    if (message.size() > countAt + 4 && bytes[1] == 0) {
      account.received += boost::endian::load_little_u32(bytes + countAt);
    }
  } else if (message.rfind("{\"messages\"", 0) == 0) {
    account.lost += nlohmann::json::parse(message).at("samples").at("ecg").get<std::uint64_t>();
  }
}

// Reads until the end of the stream, which is reported as an exception.
void look(std::uint16_t port, Account& account) {
  asio::io_context context;
  beast::websocket::stream<asio::ip::tcp::socket> stream(context);
  stream.next_layer().connect({asio::ip::address_v4::loopback(), port});
  stream.handshake("127.0.0.1:" + std::to_string(port), "/live");
  beast::flat_buffer buffer;
  for (;;) {
    stream.read(buffer);
    note(account, beast::buffers_to_string(buffer.data()), stream.got_binary());
    buffer.clear();
  }
}

[[noreturn]] void becomeViewer(int portPipe, int accountPipe) {
  Account account;
  std::uint16_t port = 0;
  if (::read(portPipe, &port, sizeof port) == sizeof port) {
    try {
      look(port, account);
    } catch (const std::exception&) {
      // The page has been closed.
    }
  }
  const ssize_t written = ::write(accountPipe, &account, sizeof account);
  ::_exit(written == sizeof account ? 0 : 1);
}

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe for a viewer");
  return ends;
}

}  // namespace

Audience::Audience(std::size_t viewers) {
  for (std::size_t i = 0; i < viewers; ++i) {
    const std::array<int, 2> port = makePipe();
    const std::array<int, 2> account = makePipe();
    const pid_t process = ::fork();
    if (process < 0) throw std::runtime_error("no process for a viewer");
    if (process == 0) {
      // Otherwise later processes would keep the pipes of earlier ones open.
      for (const Viewer& other : viewers_) {
        ::close(other.port);
        ::close(other.account);
      }
      ::close(port[1]);
      becomeViewer(port[0], account[1]);
    }
    ::close(port[0]);
    ::close(account[1]);
    viewers_.push_back({process, port[1], account[0]});
  }
}

Audience::~Audience() {
  for (const Viewer& viewer : viewers_) {
    ::kill(viewer.process, SIGKILL);
    ::waitpid(viewer.process, nullptr, 0);
    ::close(viewer.port);
    ::close(viewer.account);
  }
}

void Audience::watch(std::uint16_t port) const {
  for (const Viewer& viewer : viewers_) {
    if (::write(viewer.port, &port, sizeof port) != sizeof port) {
      throw std::runtime_error("a viewer has gone");
    }
  }
}

void Audience::stop(std::size_t viewer) const { ::kill(viewers_.at(viewer).process, SIGSTOP); }
void Audience::resume(std::size_t viewer) const { ::kill(viewers_.at(viewer).process, SIGCONT); }

std::vector<Account> Audience::finish() {
  std::vector<Account> accounts;
  for (const Viewer& viewer : viewers_) {
    Account account;
    if (::read(viewer.account, &account, sizeof account) != sizeof account) {
      throw std::runtime_error("a viewer has reported nothing");
    }
    accounts.push_back(account);
  }
  return accounts;
}

}  // namespace bench
