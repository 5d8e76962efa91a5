#pragma once
/// @file
/// Who may see the live page. It shows a person's heart, so that nobody gets it by accident:
///
/// - The Host of a request must be the address that is served. Otherwise a page from elsewhere
/// could
///   have its own name point to this machine and read everything (DNS rebinding).
/// - The Origin of a WebSocket must be this very page: browsers let any page open one anywhere.
/// - Beyond this machine an access token is needed.
///
///   const Access access(address, 8765, makeToken());
///   if (!access.allowsHost(host)) refuse();

#include <boost/asio/ip/address.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::view {

/// 128 random bits, in lower-case hexadecimal. std::system_error when the system has none.
std::string makeToken();

/// Takes as long for a token that is nearly right as for one that is not.
bool sameToken(std::string_view left, std::string_view right);

class Access {
 public:
  /// Served on `address` (which may stand for all addresses of this machine) and `port`; without a
  /// `token` everybody who reaches it may see it.
  Access(boost::asio::ip::address address, std::uint16_t port, std::optional<std::string> token);

  /// The value of a request's Host: with the port, unless it is that of HTTP.
  bool allowsHost(std::string_view host) const;
  /// The value of a WebSocket's Origin, and the request's Host. Programs that are no browsers send
  /// no Origin: they could say what they like.
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
