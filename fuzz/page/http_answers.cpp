// SPDX-License-Identifier: MIT
#include <fuzz/page/http_answers.h>

#include <fuzz/support/require.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>

namespace fuzz {

namespace {

constexpr int switching = 101;

constexpr std::array statuses = {switching, 200, 303, 400, 403, 404, 405, 413, 421, 426, 431, 503};

constexpr std::array<std::string_view, 12> allowedHeaders = {
    "Allow",          "Cache-Control",   "Connection",
    "Content-Length", "Content-Type",    "Cross-Origin-Resource-Policy",
    "Location",       "Referrer-Policy", "Set-Cookie",
    "Upgrade",        "X-Frame-Options", "X-Content-Type-Options"};

std::optional<std::size_t> number(std::string_view text) {
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// Everything before the next `separator`, which is removed as well; empty when there is none.
std::optional<std::string_view> cut(std::string_view& text, std::string_view separator) {
  const std::size_t at = text.find(separator);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view part = text.substr(0, at);
  text.remove_prefix(at + separator.size());
  return part;
}

// The address of the WebSocket is the only part that comes from the request.
void checkPolicy(std::string_view policy) {
  constexpr std::string_view before =
      "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'";
  constexpr std::string_view after =
      "; img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
  require(policy.starts_with(before) && policy.ends_with(after), "the policy of the page");
  std::string_view socket = policy.substr(before.size());
  socket.remove_suffix(after.size());
  if (socket.empty()) return;
  constexpr std::string_view scheme = " ws://";
  require(socket.starts_with(scheme), "the policy allows nothing but the WebSocket");
  socket.remove_prefix(scheme.size());
  require(socket.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                   ".:[]-") == std::string_view::npos,
          "the policy contains no foreign text");
}

void checkHeaders(const Answer& answer) {
  for (const auto& [name, value] : answer.headers) {
    // Boost.Beast adds its name to the answer that opens a WebSocket.
    require((name == "Server" && answer.status == switching) || name == "Content-Security-Policy" ||
                name.starts_with("Sec-WebSocket-") ||
                std::ranges::find(allowedHeaders, name) != allowedHeaders.end(),
            "headers that the server uses");
    require(std::ranges::all_of(value, [](char one) { return one >= ' ' && one <= '~'; }),
            "a header is text");
  }
  if (answer.status == switching) return;
  for (const auto* name : {"Content-Security-Policy", "X-Content-Type-Options", "Referrer-Policy",
                           "X-Frame-Options", "Cross-Origin-Resource-Policy", "Cache-Control"}) {
    require(answer.headers.contains(name), "the headers that protect the page");
  }
  checkPolicy(answer.headers.at("Content-Security-Policy"));
  require(answer.headers.contains("Set-Cookie") == (answer.status == 303),
          "a cookie for the token only");
}

Answer headOf(std::string_view head) {
  Answer answer;
  std::string_view rest = head;
  const std::string_view first = cut(rest, "\r\n").value_or(head);
  require(first.starts_with("HTTP/1.1 ") || first.starts_with("HTTP/1.0 "), "the version of HTTP");
  const auto status = number(first.substr(9, 3));
  require(status && std::ranges::find(statuses, static_cast<int>(*status)) != statuses.end(),
          "a status that is documented");
  answer.status = static_cast<int>(*status);
  if (first == head) rest = {};
  while (!rest.empty()) {
    std::string_view line = rest;
    if (const auto whole = cut(rest, "\r\n")) {
      line = *whole;
    } else {
      rest = {};
    }
    const auto name = cut(line, ": ");
    require(name.has_value(), "a name and a value");
    require(answer.headers.emplace(*name, line).second, "each header once");
  }
  checkHeaders(answer);
  return answer;
}

}  // namespace

Answers answersIn(std::string_view received) {
  Answers answers;
  answers.rest = received;
  while (!answers.rest.empty()) {
    std::string_view rest = answers.rest;
    const auto head = cut(rest, "\r\n\r\n");
    if (!head) break;
    Answer answer = headOf(*head);
    if (answer.status == switching) {
      answers.webSocket = true;
    } else if (!rest.starts_with("HTTP/1.")) {
      // An answer to HEAD has no body, whatever its Content-Length is.
      require(answer.headers.contains("Content-Length"), "the length of an answer");
      const auto length = number(answer.headers.at("Content-Length"));
      require(length.has_value(), "a length is a number");
      if (rest.size() < *length && !rest.empty()) break;
      answer.body = rest.substr(0, *length);
      rest.remove_prefix(answer.body.size());
    }
    answers.all.push_back(std::move(answer));
    answers.rest = rest;
    if (answers.webSocket) break;
  }
  return answers;
}

}  // namespace fuzz
