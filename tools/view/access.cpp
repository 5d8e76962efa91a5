// SPDX-License-Identifier: MIT
#include <tools/view/access.h>

#include <tools/common/option_values.h>

#include <boost/algorithm/hex.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>

namespace Zephly::view {

namespace {

namespace ip = boost::asio::ip;
using boost::algorithm::iequals;

constexpr std::uint16_t httpPort = 80;

struct HostAndPort {
  std::string_view host;  // an IPv6 address without its brackets
  std::uint16_t port;
};

std::optional<std::uint16_t> portIn(std::string_view text) {
  if (text.empty()) return httpPort;
  if (text.front() != ':') return std::nullopt;
  return tools::parseNumber<std::uint16_t>(text.substr(1));
}

// "127.0.0.1:8765", "[::1]:8765", "localhost"
std::optional<HostAndPort> split(std::string_view text) {
  std::string_view host = text.substr(0, text.find(':'));
  std::string_view rest = text.substr(host.size());
  if (!text.empty() && text.front() == '[') {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) return std::nullopt;
    host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
  }
  const auto port = portIn(rest);
  if (!port || host.empty()) return std::nullopt;
  return HostAndPort{host, *port};
}

std::string machineName() {
  std::array<char, 256> name{};
  // The last byte stays zero, even when gethostname() truncates the name.
  if (::gethostname(name.data(), name.size() - 1) != 0) return {};
  return name.data();
}

bool isMachineName(std::string_view name) {
  const std::string own = machineName();
  return !own.empty() && (iequals(name, own) || iequals(name, own + ".local"));
}

// The value of `name` in a list of "name=value" with this separator.
std::optional<std::string_view> valueOf(std::string_view name, std::string_view all,
                                        char separator) {
  while (!all.empty()) {
    std::string_view part = all.substr(0, all.find(separator));
    all.remove_prefix(std::min(all.size(), part.size() + 1));
    part.remove_prefix(std::min(part.size(), part.find_first_not_of(' ')));
    const std::size_t equals = part.find('=');
    if (equals != std::string_view::npos && part.substr(0, equals) == name) {
      return part.substr(equals + 1);
    }
  }
  return std::nullopt;
}

}  // namespace

std::string makeToken() {
  constexpr std::size_t size = 16;
  std::array<unsigned char, size> bits{};
  if (::getrandom(bits.data(), bits.size(), 0) != static_cast<ssize_t>(bits.size())) {
    throw std::system_error(errno, std::generic_category(), "no random numbers for a token");
  }
  std::string token;
  boost::algorithm::hex_lower(bits.begin(), bits.end(), std::back_inserter(token));
  return token;
}

bool sameToken(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    difference |= static_cast<unsigned>(static_cast<unsigned char>(left[i]) ^
                                        static_cast<unsigned char>(right[i]));
  }
  return difference == 0;
}

Access::Access(ip::address address, std::uint16_t port, std::optional<std::string> token)
    : address_(std::move(address)), port_(port), token_(std::move(token)) {}

bool Access::allowsHost(std::string_view host) const {
  const auto parts = split(host);
  return parts && parts->port == port_ && allowsName(parts->host);
}

bool Access::allowsName(std::string_view name) const {
  const bool everywhere = address_.is_unspecified();
  if (iequals(name, "localhost")) return everywhere || address_.is_loopback();
  // An address with a zone ("fe80::1%eth0") could contain anything after the percent sign.
  if (name.find('%') != std::string_view::npos) return false;
  boost::system::error_code noAddress;
  const ip::address address = ip::make_address(std::string(name), noAddress);
  // A foreign name can resolve to this machine. An address in Host is one of this machine's own,
  // because the request arrived here.
  if (noAddress) return everywhere && isMachineName(name);
  if (everywhere || address == address_) return true;
  return address_.is_loopback() &&
         (address == ip::address_v4::loopback() || address == ip::address_v6::loopback());
}

bool Access::allowsOrigin(std::optional<std::string_view> origin, std::string_view host) {
  return !origin || iequals(*origin, "http://" + std::string(host));
}

bool Access::tokenInQuery(std::string_view query) const {
  const auto value = valueOf("token", query, '&');
  return token_ && value && sameToken(*value, *token_);
}

bool Access::tokenInCookie(std::string_view cookies) const {
  const auto value = valueOf(cookieName(), cookies, ';');
  return token_ && value && sameToken(*value, *token_);
}

std::string Access::cookie() const {
  return cookieName() + "=" + token_.value() + "; HttpOnly; SameSite=Strict; Path=/";
}

// Cookies are shared by all ports of a host: the port in the name separates two programs.
std::string Access::cookieName() const { return "zephly-view-" + std::to_string(port_); }

}  // namespace Zephly::view
