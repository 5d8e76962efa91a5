// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads the server's answers to HTTP requests, and checks what must hold for each.
///
///   const Answers answers = answersIn(client.received());
///   answers.all.front().status;   // 200
///   answers.rest;                 // after 101: what was sent on the WebSocket

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

struct Answer {
  int status = 0;
  std::map<std::string, std::string> headers;
  std::string body;
};

struct Answers {
  std::vector<Answer> all;
  std::string_view rest;  ///< of the WebSocket, or of an answer that is not complete
  bool webSocket = false;
};

/// Ends the program when they are not valid HTTP, or one has a status or a header that the server
/// does not use, or lacks one that protects the page. `received` must outlive the result.
Answers answersIn(std::string_view received);

}  // namespace fuzz
