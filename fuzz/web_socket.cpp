// SPDX-License-Identifier: MIT
// Conversations on the WebSocket of the live page: viewers that send frames of any kind, length and
// order, whole or in pieces, that stop reading, close, or vanish, while the server sends messages.
//
// Whatever is sent, the server's frames are valid. Messages arrive unchanged, in order and at most
// once; a viewer that keeps to the protocol and reads receives every message or the number of those
// that were dropped, has each of its pings answered, and is not disconnected.

#include <fuzz/page/frames.h>
#include <fuzz/page/http_answers.h>
#include <fuzz/page/served_page.h>
#include <fuzz/support/input.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using fuzz::Input;
using fuzz::require;
using web::ClientFrame;
using Zephly::view::Message;

struct Viewer {
  fuzz::PageClient* client;
  // Keeps to the protocol and always reads: it must get everything.
  bool correct = true;
  std::size_t budget = 0;       // bytes that it may still send
  std::uint64_t firstOwed = 0;  // number of the first message since it opened
  std::vector<std::string> pings = {};
};

class Conversation {
 public:
  explicit Conversation(Input& input)
      : input_(input),
        limits_(chosenLimits(input)),
        page_({.limits = limits_, .greeting = [this] { return greeting(); }}) {}

  void run() {
    while (!input_.empty()) step();
    const bool destroyed = end_ == 1;
    if (!destroyed) page_.close();
    for (Viewer& viewer : viewers_) checkOpenUntilNow(viewer, destroyed);
    if (destroyed) {
      page_.destroy();
    } else {
      page_.finish();
    }
    for (const Viewer& viewer : viewers_) check(viewer, !destroyed);
  }

 private:
  static Zephly::view::Limits chosenLimits(Input& input) {
    Zephly::view::Limits limits = fuzz::smallLimits();
    if (input.coin()) limits.stalled = std::chrono::milliseconds(0);
    if (input.coin()) limits.queueBytes = 200;
    return limits;
  }

  // Messages -------------------------------------------------------------------------------------

  // Each message has a number, and differs from all others.
  Message message(Message::Kind kind, unsigned size) {
    const std::uint64_t number = messages_.size();
    if (kind == Message::Kind::samples) {
      const std::vector<float> values(1 + size % 64U, static_cast<float>(number));
      messages_.push_back(samplesMessage(Zephly::view::Trace::ecg, number, 0, values));
    } else {
      messages_.push_back(textMessage(
          kind, "{\"n\":" + std::to_string(number) + ",\"x\":\"" + std::string(size, 'x') + "\"}"));
    }
    return messages_.back();
  }

  std::vector<Message> greeting() {
    greeted_ = messages_.size();
    return {message(Message::Kind::other, 3), message(Message::Kind::state, 9)};
  }

  // Viewers --------------------------------------------------------------------------------------

  void open() {
    constexpr std::size_t most = 20;
    if (viewers_.size() == most) return;
    greeted_.reset();
    fuzz::PageClient& client = page_.connect(1 + input_.below(2));
    page_.sendAll(client, "GET /live HTTP/1.1\r\nHost: " + page_.host() +
                              "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                              "Sec-WebSocket-Version: 13\r\n"
                              "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
    // Refused when there are too many.
    if (!greeted_) return client.close();
    viewers_.push_back({.client = &client,
                        .correct = limits_.stalled.count() > 0,
                        .budget = limits_.viewerBytes,
                        .firstOwed = *greeted_});
    chosen_ = viewers_.size() - 1;
  }

  Viewer& chosen() { return viewers_.at(chosen_); }

  void sendRight(const ClientFrame& frame) {
    const std::string bytes = clientFrame(frame);
    // Beyond the limit it is disconnected.
    if (bytes.size() > chosen().budget) chosen().correct = false;
    chosen().budget -= std::min(chosen().budget, bytes.size());
    if (frame.kind == web::ping) chosen().pings.push_back(frame.payload);
    page_.sendAll(*chosen().client, bytes);
  }

  void sendAny(const std::string& bytes) {
    chosen().correct = false;
    page_.sendAll(*chosen().client, bytes);
  }

  ClientFrame anyFrame() {
    ClientFrame frame{.kind = input_.below(16), .last = input_.below(4) != 0};
    if (input_.below(8) == 0) frame.reserved = input_.below(8);
    frame.masked = input_.below(16) != 0;
    frame.mask = input_.number<std::uint32_t>();
    frame.payload = input_.text(140);
    if (input_.below(16) == 0) frame.length = input_.number<std::uint64_t>();
    return frame;
  }

  void step() {
    const unsigned what = input_.below(16);
    if (viewers_.empty() || what == 0) return open();
    switch (what) {
      case 1:
        chosen_ = input_.below(static_cast<unsigned>(viewers_.size()));
        break;
      case 2:
        sendRight({.kind = web::ping, .mask = 7, .payload = input_.text(125)});
        break;
      case 3:
        sendRight({.kind = web::pong, .payload = input_.text(125)});
        break;
      case 4:
      case 5:
        sendAny(clientFrame(anyFrame()));
        break;
      case 6:
        sendAny(input_.text(255));
        break;
      case 7: {
        // The same frame often.
        const std::string frame = clientFrame(anyFrame());
        std::string all;
        for (unsigned i = input_.byte(); i > 0; --i) all += frame;
        sendAny(all);
        break;
      }
      case 8: {
        const std::string frame = clientFrame(anyFrame());
        const std::size_t first = std::min<std::size_t>(input_.byte(), frame.size());
        sendAny(frame.substr(0, first));
        page_.run();
        sendAny(frame.substr(first));
        break;
      }
      case 9:
        chosen().correct = false;
        chosen().client->reads = !chosen().client->reads;
        break;
      case 10:
        chosen().correct = false;
        chosen().client->close();
        break;
      case 11:
        chosen().correct = false;
        chosen().client->stopSending();
        break;
      case 12:
        page_.server().send(message(Message::Kind::state, input_.byte()));
        break;
      case 13:
        page_.server().send(message(Message::Kind::other, input_.byte()));
        break;
      case 14:
        end_ = input_.below(8);
        break;
      default:
        for (unsigned i = input_.below(32); i > 0; --i) {
          page_.server().send(message(Message::Kind::samples, input_.byte()));
        }
    }
    page_.run();
  }

  // Checks ---------------------------------------------------------------------------------------

  static fuzz::Frames framesOf(const Viewer& viewer) {
    return fuzz::framesIn(fuzz::answersIn(viewer.client->received()).rest);
  }

  static void checkOpenUntilNow(Viewer& viewer, bool stillOpen) {
    if (!viewer.correct) return;
    const fuzz::Frames frames = framesOf(viewer);
    const auto code = fuzz::closeCode(frames);
    require(!viewer.client->ended(), "a correct viewer is not disconnected");
    require(stillOpen ? !code : code == 1001U, "a correct viewer is closed with the server only");
  }

  void check(const Viewer& viewer, bool closed) const {
    const fuzz::Frames frames = framesOf(viewer);
    std::uint64_t next = viewer.firstOwed;  // smallest number that may follow
    std::uint64_t received = 0;
    std::uint64_t dropped = 0;
    auto ping = viewer.pings.begin();
    for (const web::ServerFrame& frame : frames.all) {
      if (frame.kind == web::text || frame.kind == web::binary) {
        if (const auto loss = lossIn(frame)) {
          dropped += *loss;
          continue;
        }
        const std::uint64_t number = numberOf(frame);
        require(number >= next, "messages in order, and each once");
        next = number + 1;
        if (messages_[number].kind != Message::Kind::state) ++received;
      } else if (frame.kind == web::pong && viewer.correct) {
        require(ping != viewer.pings.end() && frame.payload == *ping, "a pong answers a ping");
        ++ping;
      }
    }
    if (const auto code = fuzz::closeCode(frames)) checkCode(viewer, *code);
    if (!viewer.correct) return;
    require(ping == viewer.pings.end(), "every ping is answered");
    require(frames.complete, "whole frames");
    if (closed) require(received + dropped == owed(viewer), "every message arrives or is counted");
  }

  std::uint64_t owed(const Viewer& viewer) const {
    std::uint64_t count = 0;
    for (std::uint64_t number = viewer.firstOwed; number < messages_.size(); ++number) {
      // The greetings of other viewers are for them only.
      if (messages_[number].kind != Message::Kind::state && !isGreetingOfAnother(viewer, number))
        ++count;
    }
    return count;
  }

  bool isGreetingOfAnother(const Viewer& viewer, std::uint64_t number) const {
    return std::ranges::any_of(viewers_, [&](const Viewer& other) {
      return &other != &viewer && other.firstOwed == number;
    });
  }

  // Of a message about dropped messages.
  static std::optional<std::uint64_t> lossIn(const web::ServerFrame& frame) {
    if (frame.kind != web::text) return std::nullopt;
    const auto json = nlohmann::json::parse(frame.payload, nullptr, false);
    require(json.is_object(), "a text is a JSON object");
    if (!json.contains("type")) return std::nullopt;
    require(json.at("type") == "lost", "a message about lost ones");
    return json.at("messages").get<std::uint64_t>();
  }

  std::uint64_t numberOf(const web::ServerFrame& frame) const {
    const auto found = std::ranges::find_if(
        messages_, [&](const Message& message) { return *message.bytes == frame.payload; });
    require(found != messages_.end(), "a message arrives as it was sent");
    require((found->kind == Message::Kind::samples) == (frame.kind == web::binary),
            "samples are binary, texts are text");
    return static_cast<std::uint64_t>(found - messages_.begin());
  }

  static void checkCode(const Viewer& viewer, unsigned code) {
    constexpr std::array ours = {1001U, 1002U, 1003U, 1007U, 1009U};
    if (std::ranges::find(ours, code) != ours.end()) return;
    // The answer to a viewer that has closed.
    require(!viewer.correct && code >= 1000, "a code");
  }

  Input& input_;
  Zephly::view::Limits limits_;
  std::vector<Message> messages_;  // by number
  std::optional<std::uint64_t> greeted_;
  unsigned end_ = 0;
  std::vector<Viewer> viewers_;
  std::size_t chosen_ = 0;
  fuzz::ServedPage page_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Conversation(input).run();
  return 0;
}
