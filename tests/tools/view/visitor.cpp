// SPDX-License-Identifier: MIT
#include <tests/tools/view/visitor.h>

#include <tests/support/web_frames.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

namespace attack {

namespace {

constexpr timeval patience{10, 0};

}  // namespace

Visitor::Visitor(std::uint16_t port, std::string token, std::uint8_t from)
    : port_(port), token_(std::move(token)), from_(from) {}

Visitor::~Visitor() { close(); }

void Visitor::close() {
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
  received_.clear();
}

bool Visitor::fail(std::string problem) {
  problem_ = std::move(problem);
  return false;
}

bool Visitor::connect() {
  close();
  descriptor_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  // Limits connect(), too.
  ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl((INADDR_LOOPBACK & 0xFFFFFF00U) | from_);
  ::bind(descriptor_, reinterpret_cast<const sockaddr*>(&own), sizeof own);
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_port = htons(port_);
  server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const auto* address = reinterpret_cast<const sockaddr*>(&server);
  if (::connect(descriptor_, address, sizeof server) == 0) return true;
  return fail(std::string("no connection: ") + std::strerror(errno));
}

bool Visitor::send(const std::string& bytes) {
  const ssize_t count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (count == static_cast<ssize_t>(bytes.size())) return true;
  return fail(std::string("a request cannot be sent: ") + std::strerror(errno));
}

bool Visitor::receive() {
  std::array<char, 65536> part{};
  ssize_t count = 0;
  do {
    count = ::recv(descriptor_, part.data(), part.size(), 0);
  } while (count < 0 && errno == EINTR);
  if (count == 0) return fail("the server has closed the connection");
  if (count < 0) return fail(std::string("no answer: ") + std::strerror(errno));
  received_.append(part.data(), static_cast<std::size_t>(count));
  return true;
}

std::optional<std::string> Visitor::ask(const std::string& target, const std::string& headers) {
  if ((descriptor_ < 0 && !connect()) || !send("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" +
                                               std::to_string(port_) + "\r\n" + headers + "\r\n")) {
    return std::nullopt;
  }
  constexpr std::string_view separator = "\r\n\r\n";
  while (received_.find(separator) == std::string::npos) {
    if (!receive()) return std::nullopt;
  }
  const std::size_t size = received_.find(separator) + separator.size();
  std::string head = received_.substr(0, size);
  received_.erase(0, size);
  return head;
}

bool Visitor::openPage() {
  close();
  const auto welcome = ask("/?token=" + token_, "");
  if (!welcome) return false;
  constexpr std::string_view name = "Set-Cookie: ";
  const std::size_t at = welcome->find(name);
  if (at == std::string::npos) return fail("no cookie in " + *welcome);
  const std::size_t value = at + name.size();
  cookie_ = welcome->substr(value, welcome->find(';', value) - value);
  close();
  return getPage();
}

bool Visitor::openAgain() { return getPage(); }

bool Visitor::openSlowly(std::chrono::milliseconds pause) {
  if (!connect()) return false;
  std::this_thread::sleep_for(pause);
  const auto welcome = ask("/?token=" + token_, "");
  if (!welcome) return false;
  return welcome->starts_with("HTTP/1.1 303 ") || fail("no welcome: " + *welcome);
}

// The title is the end of the page.
bool Visitor::getPage() {
  constexpr std::string_view end = "</title>";
  const auto page = ask("/", "Cookie: " + cookie_ + "\r\n");
  if (!page) return false;
  if (!page->starts_with("HTTP/1.1 200 ")) return fail("no page: " + *page);
  while (!received_.ends_with(end)) {
    if (!receive()) return false;
  }
  received_.clear();
  return true;
}

bool Visitor::watch() {
  close();
  const auto answer =
      ask("/live", "Cookie: " + cookie_ + "\r\nOrigin: http://127.0.0.1:" + std::to_string(port_) +
                       "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                       "Sec-WebSocket-Version: 13\r\n"
                       "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n");
  if (!answer) return false;
  if (!answer->starts_with("HTTP/1.1 101 ")) return fail("no WebSocket: " + *answer);
  return true;
}

std::optional<Visitor::Message> Visitor::next() {
  auto frame = web::serverFrameIn(received_);
  while (!frame) {
    if (!receive()) return std::nullopt;
    frame = web::serverFrameIn(received_);
  }
  received_.erase(0, frame->size);
  if (frame->kind == web::closing) {
    problem_ = "the server has closed the WebSocket";
    return std::nullopt;
  }
  return Message{frame->kind == web::binary, std::move(frame->payload)};
}

}  // namespace attack
