// SPDX-License-Identifier: MIT
// Broken and malicious clients: they do not affect other clients, and are disconnected.

#include <tests/tools/view/bytes.h>
#include <tests/tools/view/world.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

namespace Zephly::view {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;

// After each test a correct client is still served.
class HostileTest : public testing::Test {
 protected:
  explicit HostileTest(ServerOptions options = {}) : world(std::move(options)) {}
  void TearDown() override { EXPECT_TRUE(servedInTheEnd()); }
  // The server's answer to these bytes, after which it closes the connection.
  std::string statusOf(std::string bytes) {
    RawClient client(world);
    client.send(std::move(bytes));
    EXPECT_TRUE(world.runUntil([&] { return client.closed(); }));
    EXPECT_TRUE(client.closedCleanly()) << "the answer may have got lost";
    return client.status();
  }
  // A correct client is served, though perhaps not at its first attempt.
  virtual bool servedInTheEnd() {
    bool served = false;
    return world.runUntil([&] {
      RawClient client(world);
      client.send(get() + "\r\n");
      const bool answered =
          world.runUntil([&] { return client.closed() || client.status() == "200"; });
      served = client.status() == "200";
      return served || !answered;
    }) && served;
  }
  // All connections made so far have reached the server, and those that it closed are closed.
  bool acceptedAll() {
    RawClient last(world, "127.0.0.3");
    last.send("x\r\n\r\n");
    return world.runUntil([&] { return last.closed(); });
  }
  std::string get() const { return "GET / HTTP/1.1\r\nHost: " + world.host() + "\r\n"; }

  World world;
};

TEST_F(HostileTest, InvalidHttpIs400) {
  for (const std::string& bytes : {std::string("\r\n\r\n\r\n"),
                                   std::string("hello\r\n\r\n"),
                                   std::string("GET\r\n\r\n"),
                                   std::string("GET /\r\n\r\n"),
                                   std::string("GET / HTTP/2.0\r\n\r\n"),
                                   std::string("GET / HTTP/1.1 \r\n\r\n"),
                                   std::string("GET / HTTQ/1.1\r\n\r\n"),
                                   std::string("GET  / HTTP/1.1\r\n\r\n"),
                                   std::string("G\0T / HTTP/1.1\r\n\r\n", 18),
                                   std::string("GET /\x01 HTTP/1.1\r\n\r\n"),
                                   std::string("\x16\x03\x01\x02\x00\x01", 6) + "\r\n\r\n",
                                   std::string("\xFF\xFE\xFD\xFC\r\n\r\n"),
                                   get() + "no colon\r\n\r\n",
                                   get() + "Bad Name: x\r\n\r\n",
                                   get() + "X: a\x01"
                                           "b\r\n\r\n",
                                   get() + "Content-Length: x\r\n\r\n",
                                   get() + "Content-Length: -1\r\n\r\n",
                                   get() + "Content-Length: 1\r\nContent-Length: 2\r\n\r\nab",
                                   get() + "Content-Length: 99999999999999999999999\r\n\r\n",
                                   get() + "Transfer-Encoding: chunked\r\n\r\nzz\r\n"}) {
    EXPECT_EQ(statusOf(bytes), "400") << testing::PrintToString(bytes);
  }
}

TEST_F(HostileTest, HeadersWithoutEndAre431) {
  EXPECT_EQ(statusOf(get() + "X: " + std::string(1'000'000, 'x') + "\r\n\r\n"), "431");
  std::string many = get();
  for (int i = 0; i < 10'000; ++i) many += "X" + std::to_string(i) + ": y\r\n";
  EXPECT_EQ(statusOf(many + "\r\n"), "431");
  EXPECT_EQ(statusOf("GET /" + std::string(100'000, 'a') + " HTTP/1.1\r\n\r\n"), "431");
}

TEST_F(HostileTest, ABodyIs413) {
  EXPECT_EQ(statusOf(get() + "Content-Length: 1025\r\n\r\n" + std::string(1025, 'x')), "413");
  EXPECT_EQ(statusOf(get() + "Content-Length: 18446744073709551615\r\n\r\n"), "413");
  std::string chunks;
  for (int i = 0; i < 100; ++i) chunks += "64\r\n" + std::string(100, 'x') + "\r\n";
  EXPECT_EQ(statusOf(get() + "Transfer-Encoding: chunked\r\n\r\n" + chunks + "0\r\n\r\n"), "413");
}

ServerOptions small() {
  ServerOptions options;
  options.limits.headerBytes = 512;
  options.limits.bodyBytes = 32;
  return options;
}

class SmallTest : public HostileTest {
 protected:
  SmallTest() : HostileTest(small()) {}
};

TEST_F(SmallTest, ARefusedClientIsClosedWithBuffersSmallerThanAPage) {
  EXPECT_EQ(statusOf(get() + "Content-Length: 33\r\n\r\n" + std::string(33, 'x')), "413");
}

ServerOptions impatient() {
  ServerOptions options;
  options.limits.headerBytes = 64UL * 1024 * 1024;  // so that nothing but time ends a request
  options.limits.request = 60ms;
  options.limits.handshake = 60ms;
  return options;
}

class ImpatientTest : public HostileTest {
 protected:
  ImpatientTest() : HostileTest(impatient()) {}
};

TEST_F(ImpatientTest, DisconnectsASilentClient) {
  RawClient client(world);
  EXPECT_TRUE(world.runUntil([&] { return client.closed(); }));
  EXPECT_THAT(client.received(), IsEmpty());
}

TEST_F(ImpatientTest, DisconnectsAClientThatSendsHeadersSlowly) {
  RawClient client(world);
  client.send("GET / HTTP/1.1\r\n");
  // More data without an end.
  boost::asio::steady_timer drip(world.context);
  std::function<void()> next = [&] {
    drip.expires_after(5ms);
    drip.async_wait([&](const auto& error) {
      if (error) return;
      client.send("X: y\r\n");
      next();
    });
  };
  next();
  EXPECT_TRUE(world.runUntil([&] { return client.closed(); }));
  drip.cancel();
  world.context.poll();
}

ServerOptions unread() {
  ServerOptions options;
  options.limits.request = 10min;
  options.limits.response = 60ms;
  options.limits.socketBytes = 2048;
  return options;
}

class UnreadTest : public HostileTest {
 protected:
  UnreadTest() : HostileTest(unread()) {}
};

TEST_F(UnreadTest, DisconnectsAClientThatDoesNotReadItsAnswers) {
  using boost::asio::ip::tcp;
  constexpr std::size_t requests = 2000;
  tcp::socket client(world.context);
  client.open(tcp::v4());
  client.set_option(tcp::socket::receive_buffer_size(4096));
  client.connect(world.endpoint());
  std::string all;
  for (std::size_t i = 0; i < requests; ++i) all += get() + "\r\n";
  boost::asio::async_write(client, boost::asio::buffer(all), [](const auto&, std::size_t) {});
  boost::asio::steady_timer pause(world.context);
  bool over = false;
  pause.expires_after(300ms);
  pause.async_wait([&](const auto&) { over = true; });
  ASSERT_TRUE(world.runUntil([&] { return over; }));

  bool closed = false;
  std::array<char, 4096> part{};
  const std::function<void()> read = [&] {
    client.async_read_some(boost::asio::buffer(part), [&](const auto& error, std::size_t) {
      closed = static_cast<bool>(error);
      if (!closed) read();
    });
  };
  read();
  EXPECT_TRUE(world.runUntil([&] { return closed; }));
}

TEST_F(ImpatientTest, TheTimeLimitOfARequestDoesNotEndAWebSocket) {
  LiveClient client(world);
  ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
  // Another client connects and is disconnected meanwhile.
  RawClient silent(world);
  ASSERT_TRUE(world.runUntil([&] { return silent.closed(); }));
  client.ping();
  EXPECT_TRUE(world.runUntil([&] { return client.ponged(); }));
  EXPECT_FALSE(client.closed());
}

TEST_F(HostileTest, RefusesAnInvalidHandshake) {
  const std::string upgrade = "GET /live HTTP/1.1\r\nHost: " + world.host() +
                              "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n";
  const std::string key = "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";
  const std::string version = "Sec-WebSocket-Version: 13\r\n";
  EXPECT_EQ(statusOf(upgrade + version + "\r\n"), "400");
  EXPECT_EQ(statusOf(upgrade + key + "\r\n"), "400");
  EXPECT_EQ(statusOf(upgrade + version + "Sec-WebSocket-Key: short\r\n\r\n"), "400");
  EXPECT_EQ(statusOf(upgrade + version + "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZ*==\r\n\r\n"),
            "400");
  EXPECT_EQ(statusOf(upgrade + key + version + "\r\nspoken too early"), "400");
  EXPECT_THAT(world.lines, IsEmpty());
}

TEST_F(HostileTest, ARefusedHandshakeHasTheHeadersThatProtectThePage) {
  RawClient client(world);
  client.send("GET /live HTTP/1.1\r\nHost: " + world.host() +
              "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 8\r\n"
              "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
  ASSERT_TRUE(world.runUntil([&] { return client.closed() || client.status() == "426"; }));
  EXPECT_THAT(client.received(), HasSubstr("\r\nContent-Security-Policy: default-src 'none'; "));
  EXPECT_THAT(client.received(), HasSubstr("\r\nSec-WebSocket-Version: 13\r\n"));
}

TEST_F(HostileTest, RefusesAnotherOrigin) {
  for (const char* origin : {"http://evil.example", "null", "https://127.0.0.1:8765", ""}) {
    LiveClient client(world, {.headers = {{"Origin", origin}}});
    ASSERT_TRUE(world.runUntil([&] { return client.closed(); }));
    EXPECT_EQ(client.refusal(), 403U) << origin;
  }
  LiveClient twice(world, {.headers = {{"Origin", "http://" + world.host()},
                                       {"Origin", "http://evil.example"}}});
  ASSERT_TRUE(world.runUntil([&] { return twice.closed(); }));
  EXPECT_EQ(twice.refusal(), 400U);
  LiveClient right(world, {.headers = {{"Origin", "http://" + world.host()}}});
  EXPECT_TRUE(world.runUntil([&] { return right.open(); }));
}

TEST_F(HostileTest, RefusesAnotherHost) {
  LiveClient client(world, {.host = "evil.example"});
  ASSERT_TRUE(world.runUntil([&] { return client.closed(); }));
  EXPECT_EQ(client.refusal(), 421U);
}

TEST_F(HostileTest, AMessageEndsTheSocket) {
  for (const std::string& text : {std::string("{}"), std::string(), std::string(1024, 'x')}) {
    LiveClient client(world);
    ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
    client.sendText(text);
    ASSERT_TRUE(world.runUntil([&] { return client.closed(); }));
    EXPECT_EQ(client.closeCode(), 1003) << text.size();
  }
}

TEST_F(HostileTest, ATooLargeMessageEndsTheSocket) {
  LiveClient client(world);
  ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
  client.sendText(std::string(1025, 'x'));
  ASSERT_TRUE(world.runUntil([&] { return client.closed(); }));
  EXPECT_EQ(client.closeCode(), 1009);
}

// Raw bytes on the WebSocket, and the server's close code.
struct Frame {
  std::string name;
  std::string bytes;
  int code;
};

void PrintTo(const Frame& frame, std::ostream* stream) { *stream << frame.name; }

class FrameTest : public HostileTest, public testing::WithParamInterface<Frame> {};

TEST_P(FrameTest, EndsTheSocket) {
  LiveClient client(world);
  ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
  client.sendRaw(GetParam().bytes);
  ASSERT_TRUE(world.runUntil([&] { return client.closed(); }));
  EXPECT_EQ(client.closeCode(), GetParam().code);
  EXPECT_TRUE(world.runUntil([&] { return world.server->viewers() == 0; }));
}

INSTANTIATE_TEST_SUITE_P(
    Live, FrameTest,
    testing::Values(Frame{"Unmasked", bytes({0x81, 0x02, 'h', 'i'}), 1002},
                    Frame{"ReservedBits", bytes({0xF1, 0x80, 0, 0, 0, 0}), 1002},
                    Frame{"UnknownKind", bytes({0x83, 0x80, 0, 0, 0, 0}), 1002},
                    Frame{"ContinuationOfNothing", bytes({0x80, 0x80, 0, 0, 0, 0}), 1002},
                    Frame{"LongPing", bytes({0x89, 0xFE, 0, 126, 0, 0, 0, 0}), 1002},
                    Frame{"PartOfAPing", bytes({0x09, 0x80, 0, 0, 0, 0}), 1002},
                    Frame{"HugeLength",
                          bytes({0x82, 0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0,
                                 0, 0}),
                          1009},
                    Frame{"TextThatIsNoUtf8", bytes({0x81, 0x82, 0, 0, 0, 0, 0xFF, 0xFF}), 1007}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(HostileTest, EndlessControlFramesAndFragmentsEndTheSocket) {
  constexpr std::size_t repetitions = 400'000;  // 2.4 MB
  const auto repeated = [](const std::string& frame) {
    std::string all;
    for (std::size_t i = 0; i < repetitions; ++i) all += frame;
    return all;
  };
  for (const std::string& bytes :
       {repeated(bytes({0x89, 0x80, 0, 0, 0, 0})), repeated(bytes({0x8A, 0x80, 0, 0, 0, 0})),
        bytes({0x01, 0x80, 0, 0, 0, 0}) + repeated(bytes({0x00, 0x80, 0, 0, 0, 0}))}) {
    LiveClient client(world);
    ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
    client.sendRaw(bytes);
    EXPECT_TRUE(world.runUntil([&] { return client.closed(); }));
  }
}

TEST_F(HostileTest, PingsAreAnsweredAndPongsIgnored) {
  LiveClient client(world);
  ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
  client.sendRaw(bytes({0x8A, 0x80, 0, 0, 0, 0}));
  client.ping();
  EXPECT_TRUE(world.runUntil([&] { return client.ponged(); }));
  EXPECT_FALSE(client.closed());
}

ServerOptions few() {
  ServerOptions options;
  options.limits.request = 10min;  // so that only their number ends connections
  options.limits.viewers = 2;
  options.limits.clients = 4;
  return options;
}

class FewTest : public HostileTest {
 protected:
  FewTest() : HostileTest(few()) {}
};

TEST_F(FewTest, LimitsTheNumberOfViewers) {
  LiveClient first(world);
  LiveClient second(world);
  ASSERT_TRUE(world.runUntil([&] { return first.open() && second.open(); }));
  LiveClient third(world);
  ASSERT_TRUE(world.runUntil([&] { return third.closed(); }));
  EXPECT_EQ(third.refusal(), 503U);
  EXPECT_EQ(world.server->viewers(), 2U);
}

TEST_F(FewTest, ClosesConnectionsBeyondTheLimitImmediately) {
  {
    std::array<std::unique_ptr<RawClient>, 5> clients;
    for (auto& client : clients) client = std::make_unique<RawClient>(world);
    const auto closed = [&] {
      return std::count_if(clients.begin(), clients.end(),
                           [](const auto& client) { return client->closed(); });
    };
    EXPECT_TRUE(world.runUntil([&] { return closed() == 1; }));
  }
  // Disconnected clients free their slots.
  EXPECT_TRUE(servedInTheEnd());
}

TEST_F(FewTest, ANewClientReplacesTheOldestIdleOne) {
  std::array<std::unique_ptr<RawClient>, 4> idle;
  for (auto& client : idle) client = std::make_unique<RawClient>(world);
  RawClient client(world);
  client.send(get() + "\r\n");
  EXPECT_TRUE(world.runUntil([&] { return client.closed() || client.status() == "200"; }));
  EXPECT_EQ(client.status(), "200");
  EXPECT_TRUE(world.runUntil([&] { return idle.front()->closed(); }));
  EXPECT_FALSE(idle.back()->closed());
}

TEST_F(FewTest, ClientsOfOneAddressReplaceEachOther) {
  RawClient other(world, "127.0.0.2");
  ASSERT_TRUE(world.runUntil([&] { return acceptedAll(); }));
  std::array<std::unique_ptr<RawClient>, 20> many;
  for (auto& client : many) client = std::make_unique<RawClient>(world);
  ASSERT_TRUE(world.runUntil([&] { return acceptedAll(); }));
  other.send(get() + "\r\n");
  EXPECT_TRUE(world.runUntil([&] { return other.closed() || other.status() == "200"; }));
  EXPECT_EQ(other.status(), "200");
}

TEST_F(FewTest, ViewersAreNotReplaced) {
  LiveClient first(world);
  LiveClient second(world);
  ASSERT_TRUE(world.runUntil([&] { return first.open() && second.open(); }));
  std::array<std::unique_ptr<RawClient>, 20> idle;
  for (auto& client : idle) client = std::make_unique<RawClient>(world);
  ASSERT_TRUE(world.runUntil([&] { return acceptedAll(); }));
  EXPECT_EQ(world.server->viewers(), 2U);
  EXPECT_FALSE(first.closed() || second.closed());
}

ServerOptions fewWithToken() {
  ServerOptions options = few();
  options.token = "0a1b";
  return options;
}

class FewWithTokenTest : public HostileTest {
 protected:
  FewWithTokenTest() : HostileTest(fewWithToken()) {}
  std::string authorized() const {
    return get() + "Cookie: zephly-view-" + std::to_string(world.server->port()) + "=0a1b\r\n";
  }
  bool servedInTheEnd() override { return true; }
};

TEST_F(FewWithTokenTest, ClientsWithoutTheTokenDoNotReplaceOneWithIt) {
  RawClient page(world);
  page.send(authorized() + "\r\n");
  ASSERT_TRUE(world.runUntil([&] { return page.status() == "200"; }));
  std::array<std::unique_ptr<RawClient>, 20> without;
  for (auto& client : without) {
    client = std::make_unique<RawClient>(world);
    client->send(get() + "\r\n");
  }
  ASSERT_TRUE(world.runUntil([&] { return without.back()->status() == "403"; }));
  EXPECT_FALSE(page.closed());
  // Those with the token replace each other when there are no others.
  std::array<std::unique_ptr<RawClient>, 8> with;
  for (auto& client : with) {
    client = std::make_unique<RawClient>(world);
    client->send(authorized() + "\r\n");
    ASSERT_TRUE(world.runUntil([&] { return client->closed() || client->status() == "200"; }));
    EXPECT_EQ(client->status(), "200");
  }
  EXPECT_TRUE(page.closed());
}

TEST_F(FewTest, ForgetsClientsThatDisconnectDuringARequest) {
  for (int i = 0; i < 20; ++i) {
    RawClient client(world);
    client.send(get());
    world.context.poll();
  }
  EXPECT_TRUE(servedInTheEnd());
}

ServerOptions forOneAtATime() {
  ServerOptions options;
  options.limits.clients = 1;
  options.limits.handshake = 60ms;
  return options;
}

class OneAtATimeTest : public HostileTest {
 protected:
  OneAtATimeTest() : HostileTest(forOneAtATime()) {}
};

TEST_F(OneAtATimeTest, ARefusedClientDoesNotOccupyASlot) {
  RawClient client(world);
  client.send("nonsense\r\n\r\n");
  ASSERT_TRUE(world.runUntil([&] { return client.status() == "400"; }));
  EXPECT_TRUE(servedInTheEnd());
}

}  // namespace
}  // namespace Zephly::view
