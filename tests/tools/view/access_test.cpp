// SPDX-License-Identifier: MIT
#include <tools/view/access.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <set>
#include <string>

namespace Zephly::view {
namespace {

namespace ip = boost::asio::ip;
using testing::MatchesRegex;

Access servedOn(const char* address, std::uint16_t port = 8765) {
  return {ip::make_address(address), port, std::nullopt};
}

TEST(TokenTest, Is128RandomBitsInHexadecimal) {
  std::set<std::string> tokens;
  for (int i = 0; i < 100; ++i) {
    const std::string token = makeToken();
    EXPECT_EQ(token.size(), 32U);
    EXPECT_THAT(token, MatchesRegex("[0-9a-f]+"));
    tokens.insert(token);
  }
  EXPECT_EQ(tokens.size(), 100U);
}

TEST(TokenTest, ComparesEqualOnlyToItself) {
  EXPECT_TRUE(sameToken("0123abcd", "0123abcd"));
  EXPECT_FALSE(sameToken("0123abcd", "0123abce"));
  EXPECT_FALSE(sameToken("0123abcd", "1123abcd"));
  EXPECT_FALSE(sameToken("0123abcd", "0123abc"));
  EXPECT_FALSE(sameToken("0123abcd", "0123abcd0"));
  EXPECT_FALSE(sameToken("0123abcd", ""));
  EXPECT_FALSE(sameToken("0123abcd", "0123ABCD"));
}

TEST(AccessTest, OnLoopbackServesOnlyLoopbackNames) {
  const Access access = servedOn("127.0.0.1");
  for (const char* host : {"127.0.0.1:8765", "localhost:8765", "LocalHost:8765", "[::1]:8765"}) {
    EXPECT_TRUE(access.allowsHost(host)) << host;
  }
  for (const char* host :
       {"127.0.0.1", "127.0.0.1:8766", "localhost", "evil.example:8765", "localhost.evil:8765",
        "127.0.0.1.evil:8765", "192.168.1.5:8765", "[::2]:8765", "[::1:8765", "::1:8765", "",
        ":8765", "127.0.0.1:8765x", "127.0.0.1:", "127.0.0.1:99999", "127.0.0.1:-1", "127.1:8765",
        "127.0.0.1:8765, evil", "user@127.0.0.1:8765"}) {
    EXPECT_FALSE(access.allowsHost(host)) << host;
  }
}

TEST(AccessTest, TheDefaultPortMayBeOmitted) {
  EXPECT_TRUE(servedOn("127.0.0.1", 80).allowsHost("localhost"));
  EXPECT_TRUE(servedOn("127.0.0.1", 80).allowsHost("localhost:80"));
  EXPECT_TRUE(servedOn("::1", 80).allowsHost("[::1]"));
}

TEST(AccessTest, OnOneAddressServesOnlyThatAddress) {
  const Access access = servedOn("192.168.1.5");
  EXPECT_TRUE(access.allowsHost("192.168.1.5:8765"));
  EXPECT_FALSE(access.allowsHost("192.168.1.6:8765"));
  EXPECT_FALSE(access.allowsHost("localhost:8765"));
  const Access six = servedOn("2001:db8::5");
  EXPECT_TRUE(six.allowsHost("[2001:db8::5]:8765"));
  EXPECT_TRUE(six.allowsHost("[2001:DB8:0::5]:8765"));
  EXPECT_FALSE(six.allowsHost("[2001:db8::6]:8765"));
}

TEST(AccessTest, OnAllAddressesServesAnyAddressAndTheHostName) {
  std::array<char, 256> name{};
  ASSERT_EQ(::gethostname(name.data(), name.size() - 1), 0);
  for (const char* everywhere : {"0.0.0.0", "::"}) {
    const Access access = servedOn(everywhere);
    EXPECT_TRUE(access.allowsHost("192.168.1.5:8765"));
    EXPECT_TRUE(access.allowsHost("[2001:db8::5]:8765"));
    EXPECT_TRUE(access.allowsHost("localhost:8765"));
    EXPECT_TRUE(access.allowsHost(std::string(name.data()) + ":8765"));
    EXPECT_TRUE(access.allowsHost(std::string(name.data()) + ".local:8765"));
    EXPECT_FALSE(access.allowsHost("evil.example:8765"));
  }
}

TEST(AccessTest, AnAddressWithAZoneIsNotServed) {
  // The zone may contain anything, and the host is part of the page's security policy.
  for (const char* everywhere : {"0.0.0.0", "::"}) {
    const Access access = servedOn(everywhere);
    for (const char* host : {"[fe80::1%0; script-src *]:8765", "[fe80::1%eth0]:8765",
                             "[fe80::1%]:8765", "[ff02::1%1]:8765"}) {
      EXPECT_FALSE(access.allowsHost(host)) << host;
    }
    EXPECT_TRUE(access.allowsHost("[fe80::1]:8765"));
    EXPECT_TRUE(access.allowsHost("[::ffff:10.0.0.1]:8765"));
  }
}

TEST(AccessTest, AcceptsOnlyTheOriginOfThePage) {
  const std::string host = "127.0.0.1:8765";
  EXPECT_TRUE(Access::allowsOrigin(std::nullopt, host));
  EXPECT_TRUE(Access::allowsOrigin("http://127.0.0.1:8765", host));
  for (const char* origin :
       {"", "null", "http://127.0.0.1", "http://localhost:8765", "https://127.0.0.1:8765",
        "http://127.0.0.1:8765/", "http://127.0.0.1:8765.evil", "http://evil.example"}) {
    EXPECT_FALSE(Access::allowsOrigin(origin, host)) << origin;
  }
}

TEST(AccessTest, AcceptsTheTokenInQueryAndCookie) {
  const Access access(ip::make_address("0.0.0.0"), 8765, "0a1b");
  EXPECT_TRUE(access.needsToken());
  EXPECT_TRUE(access.tokenInQuery("token=0a1b"));
  EXPECT_TRUE(access.tokenInQuery("x=y&token=0a1b&z"));
  for (const char* query : {"", "token", "token=", "token=0a1", "token=0a1bc", "xtoken=0a1b",
                            "Token=0a1b", "x=token=0a1b", "0a1b"}) {
    EXPECT_FALSE(access.tokenInQuery(query)) << query;
  }
  EXPECT_TRUE(access.tokenInCookie("zephly-view-8765=0a1b"));
  EXPECT_TRUE(access.tokenInCookie("a=b; zephly-view-8765=0a1b; c=d"));
  for (const char* cookie :
       {"", "zephly-view-8765=", "zephly-view-8766=0a1b", "zephly-view-8765=0a1c", "token=0a1b"}) {
    EXPECT_FALSE(access.tokenInCookie(cookie)) << cookie;
  }
  EXPECT_EQ(access.cookie(), "zephly-view-8765=0a1b; HttpOnly; SameSite=Strict; Path=/");
}

TEST(AccessTest, AcceptsNoTokenWithoutOne) {
  const Access access = servedOn("127.0.0.1");
  EXPECT_FALSE(access.needsToken());
  EXPECT_FALSE(access.tokenInQuery("token="));
  EXPECT_FALSE(access.tokenInCookie("zephly-view-8765="));
}

}  // namespace
}  // namespace Zephly::view
