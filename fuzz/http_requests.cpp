// SPDX-License-Identifier: MIT
// Requests to the server of the live page: any bytes, and requests put together from right and
// wrong parts, whole or in pieces, on several connections from three addresses, which close, or do
// not read. The limits are small, so that they are reached.
//
// Whatever is sent, an answer is valid HTTP with the headers that protect the page. Without the
// token nothing is served; without the right port in Host nothing either, and no WebSocket is
// opened for another Origin.

#include <fuzz/page/http_answers.h>
#include <fuzz/page/served_page.h>
#include <fuzz/support/input.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

using fuzz::Input;
using fuzz::require;

constexpr const char* token = "00112233445566778899aabbccddeeff";

template <std::size_t Count>
std::string_view anyOf(Input& input, const std::array<std::string_view, Count>& choices) {
  return choices.at(input.below(Count));
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::string lowerCase(std::string text) {
  for (char& one : text) {
    if (one >= 'A' && one <= 'Z') one = static_cast<char>(one - 'A' + 'a');
  }
  return text;
}

class Requests {
 public:
  explicit Requests(Input& input)
      : input_(input),
        withToken_(input.coin()),
        page_({.token = withToken_ ? std::optional<std::string>(token) : std::nullopt}) {}

  void run() {
    while (!input_.empty()) step();
    if (destroyed_) {
      page_.destroy();
    } else {
      page_.finish();
    }
    for (const fuzz::PageClient* client : all_) check(*client);
  }

 private:
  void step() {
    const unsigned what = input_.below(16);
    fuzz::PageClient*& client = clients_.at(input_.below(6));
    // Each connection costs file descriptors until the end.
    constexpr std::size_t most = 40;
    if (client == nullptr || !client->open()) {
      if (all_.size() == most) return;
      all_.push_back(client = &page_.connect(1 + input_.below(3)));
    }
    switch (what) {
      case 0:
        client->close();
        break;
      case 1:
        client->stopSending();
        break;
      case 2:
        client->reads = !client->reads;
        break;
      case 3:
        destroyed_ = true;
        break;
      case 4:
      case 5: {
        const auto bytes = input_.bytes(255);
        page_.sendAll(*client, std::string(bytes.begin(), bytes.end()));
        break;
      }
      case 6:
        page_.sendAll(*client, std::string(4UL * input_.byte(), static_cast<char>(input_.byte())));
        break;
      case 7: {
        const std::string text = request();
        const std::size_t first = std::min<std::size_t>(input_.byte(), text.size());
        page_.sendAll(*client, std::string_view(text).substr(0, first));
        page_.sendAll(*client, std::string_view(text).substr(first));
        break;
      }
      case 8:
        // Two at once: the second one waits until the first one has been answered.
        page_.sendAll(*client, request() + request());
        break;
      default:
        page_.sendAll(*client, request());
    }
    page_.run();
  }

  std::string request() {
    std::string text(anyOf<6>(input_, {"GET", "GET", "GET", "HEAD", "POST", "get"}));
    text += " " + target() + " ";
    text += anyOf<5>(input_, {"HTTP/1.1", "HTTP/1.1", "HTTP/1.1", "HTTP/1.0", "HTTP/2.0"});
    text += "\r\n";
    if (input_.below(16) != 0) text += "Host: " + host() + "\r\n";
    for (unsigned i = input_.below(8); i > 0; --i) text += header();
    return text + "\r\n" + (input_.below(4) == 0 ? input_.text(40) : "");
  }

  std::string target() {
    switch (input_.below(8)) {
      case 0:
        return "/";
      case 1:
        return std::string("/?token=") + token;
      case 2:
        return "/live";
      case 3:
        return std::string("/live?x=y&token=") + token;
      case 4:
        return "/assets/app-1a2b.js";
      case 5:
        return "/?token=00112233445566778899aabbccddeef0";
      case 6:
        return "/" + input_.text(30);
      default:
        return input_.text(30);
    }
  }

  std::string host() {
    switch (input_.below(10)) {
      case 0:
        return "localhost:" + page_.port();
      case 1:
        return "[::1]:" + page_.port();
      case 2:
        return "evil.example:" + page_.port();
      case 3:
        return "127.0.0.1";
      case 4:
        return input_.text(20) + ":" + page_.port();
      case 5:
        return "[" + input_.text(20) + "]:" + page_.port();
      case 6:
        return page_.host() + input_.text(20);
      default:
        return page_.host();
    }
  }

  std::string header() {
    switch (input_.below(16)) {
      case 0:
      case 1:
        return "Cookie: zephly-view-" + page_.port() + "=" + token + "\r\n";
      case 2:
        return "Cookie: a=b; zephly-view-" + page_.port() + "=" + input_.text(34) + "\r\n";
      case 3:
        return "Origin: http://" + page_.host() + "\r\n";
      case 4:
        return "Origin: http://evil.example\r\n";
      case 5:
        return "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
               "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";
      case 6:
        return "Connection: " +
               std::string(anyOf<4>(input_, {"close", "keep-alive", "Upgrade", "x, y"})) + "\r\n";
      case 7:
        return "Upgrade: " + std::string(anyOf<3>(input_, {"websocket", "h2c", ""})) + "\r\n";
      case 8:
        return "Sec-WebSocket-Key: " + input_.text(26) + "\r\n";
      case 9:
        return "Sec-WebSocket-Version: " + input_.text(3) + "\r\n";
      case 10:
        return "Content-Length: " + std::to_string(input_.byte()) + "\r\n";
      case 11:
        return "Content-Length: " + input_.text(20) + "\r\n";
      case 12:
        return "Transfer-Encoding: chunked\r\n";
      case 13:
        return "Host: " + host() + "\r\n";
      case 14:
        return "Sec-WebSocket-Extensions: permessage-deflate\r\nSec-WebSocket-Protocol: x\r\n";
      default:
        return input_.text(30) + ": " + input_.text(60) + "\r\n";
    }
  }

  void check(const fuzz::PageClient& client) const {
    const fuzz::Answers answers = fuzz::answersIn(client.received());
    const bool mayHaveToken = !withToken_ || contains(client.sent(), token);
    const bool mayHaveHost = contains(client.sent(), page_.port());
    for (const fuzz::Answer& answer : answers.all) {
      // Refused for the request itself: invalid, another method, a body, too large, another Host.
      constexpr std::array refused = {400, 405, 413, 421, 431};
      if (std::ranges::find(refused, answer.status) != refused.end()) continue;
      require(mayHaveHost, "nothing is served at another Host");
      require(mayHaveToken || answer.status == 403, "nothing is served without the token");
    }
    if (answers.webSocket && answers.all.size() == 1) checkOrigin(client.sent());
  }

  // The first request of the connection has opened a WebSocket.
  void checkOrigin(const std::string& sent) const {
    const std::string head = lowerCase(sent.substr(0, sent.find("\r\n\r\n")));
    constexpr std::string_view name = "\norigin:";
    for (std::size_t at = head.find(name); at != std::string::npos; at = head.find(name, at + 1)) {
      const std::size_t value = head.find_first_not_of(" \t\r\n", at + name.size());
      const std::string_view origin = std::string_view(head).substr(std::min(value, head.size()));
      require(origin.starts_with("http://") &&
                  contains(origin.substr(0, origin.find('\r')), page_.port()),
              "no WebSocket for another page");
    }
  }

  Input& input_;
  bool withToken_;
  bool destroyed_ = false;
  fuzz::ServedPage page_;
  std::array<fuzz::PageClient*, 6> clients_{};
  std::vector<fuzz::PageClient*> all_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Requests(input).run();
  return 0;
}
