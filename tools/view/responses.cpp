// SPDX-License-Identifier: MIT
#include <tools/view/responses.h>

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/span_body.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include <algorithm>
#include <string>
#include <utility>

namespace Zephly::view {

namespace {

namespace http = boost::beast::http;
using http::field;
using http::status;

std::string_view plain(boost::beast::string_view text) { return {text.data(), text.size()}; }

constexpr std::string_view webSocketVersion = "13";

// The state that an answer depends on, besides the request.
struct Parts {
  std::string_view path;
  std::string_view query;
};

Parts partsOf(std::string_view target) {
  const std::size_t question = target.find('?');
  if (question == std::string_view::npos) return {target, {}};
  return {target.substr(0, question), target.substr(question + 1)};
}

template <class Body>
void addHeaders(http::response<Body>& response, const std::string& host) {
  // Some browsers do not count the page's own WebSocket as 'self'.
  const std::string socket = host.empty() ? "" : " ws://" + host;
  response.set("Content-Security-Policy",
               "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'" +
                   socket +
                   "; img-src 'self' data:; base-uri 'none'; form-action 'none'; "
                   "frame-ancestors 'none'");
  response.set("X-Content-Type-Options", "nosniff");
  response.set("Referrer-Policy", "no-referrer");
  response.set("X-Frame-Options", "DENY");
  response.set("Cross-Origin-Resource-Policy", "same-origin");
}

std::string_view lineFor(status result) {
  switch (result) {
    case status::bad_request:
      return "Invalid request.";
    case status::forbidden:
      return "The access token is missing or wrong. Open the address that zephly view has printed.";
    case status::not_found:
      return "Not found. The page is at /.";
    case status::method_not_allowed:
      return "Only GET and HEAD are supported.";
    case status::payload_too_large:
      return "The request has a body.";
    case status::misdirected_request:
      return "zephly view is not served at this address. Open the one that it has printed.";
    case status::upgrade_required:
      return "This path is for a WebSocket.";
    case status::request_header_fields_too_large:
      return "The headers of the request are too large.";
    case status::service_unavailable:
      return "There are too many viewers.";
    default:
      return http::obsolete_reason(result);
  }
}

// Builds the responses to one request.
class Answer {
 public:
  // `host`: the valid Host of the request, empty if it has none.
  Answer(const Request& request, std::string_view host) : request_(request), host_(host) {}

  http::message_generator line(status result, std::string_view text) const {
    http::response<http::string_body> response(result, request_.version());
    response.body() = std::string(text) + "\n";
    response.set(field::content_type, "text/plain; charset=utf-8");
    response.set(field::cache_control, "no-store");
    if (result == status::method_not_allowed) response.set(field::allow, "GET, HEAD");
    if (result == status::upgrade_required) {
      response.set(field::upgrade, "websocket");
      response.set(field::connection, "Upgrade");
      response.set(field::sec_websocket_version, webSocketVersion);
    }
    return complete(std::move(response));
  }

  http::message_generator line(status result) const { return line(result, lineFor(result)); }

  http::message_generator asset(const Asset& asset) const {
    http::response<http::span_body<const char>> response(status::ok, request_.version());
    response.body() = {asset.body.data(), asset.body.size()};
    response.set(field::content_type, asset.contentType);
    response.set(field::cache_control,
                 asset.immutable ? "private, max-age=31536000, immutable" : "no-store");
    return complete(std::move(response));
  }

  http::message_generator welcome(const Access& access) const {
    http::response<http::string_body> response(status::see_other, request_.version());
    response.set(field::location, "/");
    response.set(field::set_cookie, access.cookie());
    response.set(field::cache_control, "no-store");
    return complete(std::move(response));
  }

 private:
  template <class Body>
  http::message_generator complete(http::response<Body> response) const {
    addHeaders(response, host_);
    // After an invalid request the start of the next one is unknown.
    response.keep_alive(request_.keep_alive() && response.result() != status::bad_request);
    response.prepare_payload();
    if (request_.method() != http::verb::head) return response;
    http::response<http::empty_body> head(response.base());
    return head;
  }

  const Request& request_;
  const std::string host_;
};

std::optional<std::string_view> valueOf(const Request& request, field name) {
  const auto found = request.find(name);
  if (found == request.end()) return std::nullopt;
  return plain(found->value());
}

// Errors that do not depend on the path.
std::optional<status> objection(const Request& request, const Access& access) {
  if (request.method() != http::verb::get && request.method() != http::verb::head) {
    return status::method_not_allowed;
  }
  if (request.count(field::host) != 1 || request.count(field::origin) > 1) {
    return status::bad_request;
  }
  if (!access.allowsHost(plain(request[field::host]))) return status::misdirected_request;
  const std::string_view target = plain(request.target());
  if (target.empty() || target.front() != '/') return status::bad_request;
  return std::nullopt;
}

bool hasToken(const Request& request, const Access& access, std::string_view query) {
  if (!access.needsToken() || access.tokenInQuery(query)) return true;
  const auto [first, last] = request.equal_range(field::cookie);
  return std::any_of(
      first, last, [&](const auto& header) { return access.tokenInCookie(plain(header.value())); });
}

// 16 bytes in base 64.
bool isKey(std::string_view text) {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  constexpr std::size_t length = 22;
  return text.size() == length + 2 && text.find_first_not_of(digits) == length &&
         text.substr(length) == "==";
}

Reply replyToLive(const Request& request, const Answer& answer, bool full) {
  if (!boost::beast::websocket::is_upgrade(request)) return {answer.line(status::upgrade_required)};
  // What Boost.Beast refuses itself would lack the headers that protect the page.
  const auto version = valueOf(request, field::sec_websocket_version);
  if (!version || !isKey(plain(request[field::sec_websocket_key]))) {
    return {answer.line(status::bad_request)};
  }
  if (*version != webSocketVersion) {
    return {answer.line(status::upgrade_required, "Only version 13 of WebSocket is supported.")};
  }
  if (!Access::allowsOrigin(valueOf(request, field::origin), plain(request[field::host]))) {
    return {answer.line(status::forbidden, "Only the page itself may open this WebSocket.")};
  }
  if (full) return {answer.line(status::service_unavailable)};
  return {std::nullopt};
}

}  // namespace

Reply replyTo(const Request& request, const Access& access, std::span<const Asset> assets,
              bool full) {
  // An invalid Host must not get into the security policy.
  const std::string_view host = plain(request[field::host]);
  const Answer answer(request, access.allowsHost(host) ? host : std::string_view());
  if (const auto wrong = objection(request, access)) return {answer.line(*wrong)};
  const auto [path, query] = partsOf(plain(request.target()));
  if (!hasToken(request, access, query)) return {answer.line(status::forbidden)};
  if (path == "/live") return replyToLive(request, answer, full);
  // The redirect removes the token from the address bar.
  if (path == "/" && access.tokenInQuery(query)) return {answer.welcome(access), true};
  const auto asset = std::find_if(assets.begin(), assets.end(), [&file = path](const Asset& known) {
    return known.path == file;
  });
  if (asset == assets.end()) return {answer.line(status::not_found), true};
  return {answer.asset(*asset), true};
}

http::message_generator refusal(status result) {
  Request request;
  request.version(11);
  request.keep_alive(false);
  return Answer(request, {}).line(result);
}

}  // namespace Zephly::view
