// SPDX-License-Identifier: MIT
// The responses to valid requests of a browser: the page, and access to it.

#include <tests/tools/view/world.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <utility>

namespace Zephly::view {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class PageTest : public testing::Test {
 protected:
  explicit PageTest(ServerOptions options = {}) : world(std::move(options)) {}

  // The complete response to one request with these additional headers.
  std::string answer(const std::string& requestLine, const std::string& headers = "") {
    return answerTo(requestLine + " HTTP/1.1\r\nHost: " + world.host() + "\r\n" + headers +
                    "Connection: close\r\n\r\n");
  }
  std::string answerTo(const std::string& request) {
    RawClient client(world);
    client.send(request);
    EXPECT_TRUE(world.runUntil([&] { return client.closed(); }));
    return client.received();
  }

  World world;
};

TEST_F(PageTest, ServesThePageWithRestrictiveHeaders) {
  const std::string page = answer("GET /");
  EXPECT_THAT(page, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(page, EndsWith("\r\n\r\n<!doctype html><title>Page</title>"));
  for (const char* header :
       {"Content-Type: text/html; charset=utf-8\r\n", "Content-Length: 34\r\n",
        "X-Content-Type-Options: nosniff\r\n", "Referrer-Policy: no-referrer\r\n",
        "X-Frame-Options: DENY\r\n", "Cache-Control: no-store\r\n",
        "Content-Security-Policy: default-src 'none'; script-src 'self'; ",
        "frame-ancestors 'none'"}) {
    EXPECT_THAT(page, HasSubstr(header));
  }
  EXPECT_THAT(page, HasSubstr("connect-src 'self' ws://" + world.host() + ";"));
  EXPECT_THAT(page, Not(HasSubstr("unsafe-")));
}

TEST_F(PageTest, FilesWithHashedPathsAreCacheable) {
  const std::string script = answer("GET /assets/app-1a2b.js");
  EXPECT_THAT(script, HasSubstr("Cache-Control: private, max-age=31536000, immutable\r\n"));
  EXPECT_THAT(script, HasSubstr("X-Content-Type-Options: nosniff\r\n"));
  EXPECT_THAT(script, EndsWith("\r\n\r\nrun();"));
  EXPECT_THAT(answer("GET /assets/icon.svg"), EndsWith(std::string("\r\n\r\n<svg>\0</svg>", 16)));
}

TEST_F(PageTest, IgnoresTheQuery) {
  EXPECT_THAT(answer("GET /?theme=dark"), StartsWith("HTTP/1.1 200 "));
}

TEST_F(PageTest, HeadIsTheSameWithoutTheBody) {
  const std::string head = answer("HEAD /");
  EXPECT_THAT(head, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(head, HasSubstr("Content-Length: 34\r\n"));
  EXPECT_THAT(head, EndsWith("\r\n\r\n"));
}

TEST_F(PageTest, AnswersManyAndPipelinedRequestsOnOneConnection) {
  RawClient client(world);
  const std::string get = "GET /assets/app-1a2b.js HTTP/1.1\r\nHost: " + world.host() + "\r\n\r\n";
  client.send(get + get + get);
  const auto answers = [&] {
    int count = 0;
    for (std::size_t at = 0; (at = client.received().find("run();", at)) != std::string::npos; ++at)
      ++count;
    return count;
  };
  EXPECT_TRUE(world.runUntil([&] { return answers() == 3; }));
  client.send(get);
  EXPECT_TRUE(world.runUntil([&] { return answers() == 4; }));
  EXPECT_FALSE(client.closed());
}

TEST_F(PageTest, OtherPathsAreNotFound) {
  for (const char* path :
       {"/index.html", "/assets/", "/assets", "/assets/../assets/app-1a2b.js", "/../etc/passwd",
        "/assets/%2e%2e/app-1a2b.js", "//", "/assets//app-1a2b.js", "/assets/app-1a2b.js/", "/%00",
        "/live/", "/favicon.ico"}) {
    const std::string missing = answer(std::string("GET ") + path);
    EXPECT_THAT(missing, StartsWith("HTTP/1.1 404 Not Found\r\n")) << path;
    EXPECT_THAT(missing, HasSubstr("Content-Security-Policy: default-src 'none'")) << path;
  }
}

TEST_F(PageTest, AcceptsOnlyGetAndHead) {
  for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "PATCH", "FOO"}) {
    const std::string refused = answer(std::string(method) + " /");
    EXPECT_THAT(refused, StartsWith("HTTP/1.1 405 ")) << method;
    EXPECT_THAT(refused, HasSubstr("Allow: GET, HEAD\r\n")) << method;
  }
}

TEST_F(PageTest, RefusesAnotherHost) {
  for (const char* host : {"evil.example", "127.0.0.1", "127.0.0.1:1", "evil.example:8765",
                           "x; script-src *", "[fe80::1%0; script-src *]:80"}) {
    const std::string refused =
        answerTo("GET / HTTP/1.1\r\nHost: " + std::string(host) + "\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(refused, StartsWith("HTTP/1.1 421 ")) << host;
    EXPECT_THAT(refused, Not(HasSubstr("<title>Page"))) << host;
    EXPECT_THAT(refused, HasSubstr("connect-src 'self';")) << host;
  }
}

TEST_F(PageTest, RefusesRequestsWithoutExactlyOneHost) {
  EXPECT_THAT(answerTo("GET / HTTP/1.1\r\nConnection: close\r\n\r\n"), StartsWith("HTTP/1.1 400 "));
  EXPECT_THAT(answer("GET /", "Host: evil.example\r\n"), StartsWith("HTTP/1.1 400 "));
}

TEST_F(PageTest, RefusesATargetThatIsNotAPath) {
  EXPECT_THAT(answer("GET http://" + world.host() + "/"), StartsWith("HTTP/1.1 400 "));
  EXPECT_THAT(answer("GET *"), StartsWith("HTTP/1.1 400 "));
}

TEST_F(PageTest, TheWebSocketPathIsNotAPage) {
  const std::string refused = answer("GET /live");
  EXPECT_THAT(refused, StartsWith("HTTP/1.1 426 "));
  EXPECT_THAT(refused, HasSubstr("Upgrade: websocket\r\n"));
}

TEST_F(PageTest, PrintsAnAddressToOpen) {
  EXPECT_THAT(world.server->addresses(), testing::ElementsAre("http://" + world.host() + "/"));
}

ServerOptions withToken() {
  ServerOptions options;
  options.token = "0a1b";
  return options;
}

class TokenPageTest : public PageTest {
 protected:
  TokenPageTest() : PageTest(withToken()) {}
  std::string cookie() const {
    return "zephly-view-" + std::to_string(world.server->port()) + "=0a1b";
  }
};

TEST_F(TokenPageTest, IsRequiredForEveryRequest) {
  for (const char* path : {"/", "/assets/app-1a2b.js", "/live", "/none", "/?token=", "/?token=0a1c",
                           "/?token=0a1b0", "/?x=0a1b"}) {
    const std::string refused = answer(std::string("GET ") + path);
    EXPECT_THAT(refused, StartsWith("HTTP/1.1 403 ")) << path;
    EXPECT_THAT(refused, Not(HasSubstr("0a1b"))) << path;
  }
  EXPECT_THAT(answer("GET /", "Cookie: zephly-view-1=0a1b\r\n"), StartsWith("HTTP/1.1 403 "));
}

TEST_F(TokenPageTest, IsStoredAsACookie) {
  const std::string welcome = answer("GET /?token=0a1b");
  EXPECT_THAT(welcome, StartsWith("HTTP/1.1 303 See Other\r\n"));
  EXPECT_THAT(welcome, HasSubstr("Location: /\r\n"));
  EXPECT_THAT(welcome,
              HasSubstr("Set-Cookie: " + cookie() + "; HttpOnly; SameSite=Strict; Path=/\r\n"));
  EXPECT_THAT(answer("GET /", "Cookie: a=b; " + cookie() + "\r\n"), StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(answer("GET /assets/app-1a2b.js", "Cookie: " + cookie() + "\r\n"),
              StartsWith("HTTP/1.1 200 "));
}

TEST_F(TokenPageTest, IsPartOfThePrintedAddress) {
  EXPECT_THAT(world.server->addresses(),
              testing::ElementsAre("http://" + world.host() + "/?token=0a1b"));
}

TEST(ListeningTest, EveryProblemIsOneLine) {
  const auto address = boost::asio::ip::make_address("10.1.2.3");
  EXPECT_EQ(listeningProblem(address, 80, EADDRINUSE),
            "port 80 of 10.1.2.3 is in use; choose another one with --port N, or any free one with "
            "--port 0");
  EXPECT_EQ(listeningProblem(address, 80, EADDRNOTAVAIL), "this machine has no address 10.1.2.3");
  EXPECT_EQ(listeningProblem(address, 80, EACCES),
            "port 80 of 10.1.2.3 is for administrators only; choose one above 1023 with --port N");
  EXPECT_EQ(listeningProblem(address, 80, EMFILE),
            "cannot listen on port 80 of 10.1.2.3: Too many open files");
}

TEST(ListeningTest, RefusesAPortInUse) {
  World world;
  ServerOptions options;
  options.port = world.server->port();
  EXPECT_THROW(Server(world.context, options, {}, {}), std::runtime_error);
}

TEST(ListeningTest, RefusesAddressesOfNoSingleMachine) {
  for (const char* address : {"224.0.0.1", "239.255.255.250", "255.255.255.255", "ff02::1"}) {
    boost::asio::io_context context;
    ServerOptions options;
    options.address = boost::asio::ip::make_address(address);
    options.port = 0;
    try {
      const Server server(context, options, {}, {});
      ADD_FAILURE() << address;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(error.what(), std::string("this machine has no address ") + address);
    }
  }
}

TEST(ListeningTest, OnAllAddressesPrintsTheMachinesAddresses) {
  boost::asio::io_context context;
  ServerOptions options;
  options.address = boost::asio::ip::address_v4::any();
  options.port = 0;
  options.token = "0a1b";
  const Server server(context, options, {}, {});
  const auto addresses = server.addresses();
  ASSERT_FALSE(addresses.empty());
  for (const std::string& address : addresses) {
    EXPECT_THAT(address, AllOf(StartsWith("http://"), EndsWith("/?token=0a1b")));
    EXPECT_THAT(address, Not(HasSubstr("0.0.0.0")));
  }
}

}  // namespace
}  // namespace Zephly::view
