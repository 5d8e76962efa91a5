// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The access control of the live page, which shows medical data:
///
/// - The Host of a request must be the address of this server. Otherwise a foreign page could point
///   its own name at this machine and read everything (DNS rebinding).
/// - The Origin of a WebSocket must be this page: browsers let any page open a WebSocket anywhere.
/// - Other machines need an access token.
///
///   const Access access(address, 8765, makeToken());
///   if (!access.allowsHost(host)) refuse();

#include <boost/asio/ip/address.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::view {

/// 128 random bits in lower-case hexadecimal. Throws std::system_error when the system has none.
std::string makeToken();

/// Compares in constant time, so that the time does not reveal how much of a token is right.
bool sameToken(std::string_view left, std::string_view right);

class Access {
 public:
  /// `address` and `port`: where the server listens; the address may be the unspecified one.
  /// Without a `token` none is required.
  Access(boost::asio::ip::address address, std::uint16_t port, std::optional<std::string> token);

  /// `host`: the value of a request's Host, with the port unless it is 80.
  bool allowsHost(std::string_view host) const;
  /// The value of a WebSocket's Origin, and the request's Host. Programs other than browsers send
  /// no Origin; they are accepted, because they could send any.
  static bool allowsOrigin(std::optional<std::string_view> origin, std::string_view host);

  bool needsToken() const { return token_.has_value(); }
  /// The token is in the query of an address ("token=0a1b&x=y").
  bool tokenInQuery(std::string_view query) const;
  /// The token is in the value of a request's Cookie.
  bool tokenInCookie(std::string_view cookies) const;
  /// The value of Set-Cookie that makes a browser remember the token. With a token only.
  std::string cookie() const;

 private:
  bool allowsName(std::string_view name) const;
  std::string cookieName() const;

  boost::asio::ip::address address_;
  std::uint16_t port_;
  std::optional<std::string> token_;
};

}  // namespace Zephly::view
