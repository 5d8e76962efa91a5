// SPDX-License-Identifier: MIT
#include <tests/schedules/viewers.h>

#include <hosts/foundation/data.h>
#include <tests/schedules/allocations.h>
#include <tests/schedules/network.h>
#include <tests/schedules/virtual_time.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/protocol/streams.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>
#include <utility>

namespace schedules {

namespace {

using namespace std::chrono_literals;
using web::clientFrame;
using Zephly::main_queue::MainQueue;

constexpr Duration turnInterval = 50ms;
// The clock of the samples may be a second behind their arrival (a batch of late ones), and the
// release of the strap may hold up the queue for 3 s.
constexpr Duration soon = 4'500ms;
// Turns of 2 s, longer than it takes to receive what has waited. In turns, because a release of the
// strap holds up the viewers as well.
constexpr int recoveryTurns = 40;
// The server's limit for a request and the 3 s from above; a closing frame is sent at once.
constexpr Duration requestLimit = 14s;
constexpr Duration closeLimit = 4'500ms;
// More than a message of samples has.
constexpr std::size_t oneMessage = 2'500;

constexpr std::array<std::string_view, 4> curveNames = {"ecg", "filteredEcg", "respiration",
                                                        "motion"};

template <class Number>
Number numberAt(const std::string& bytes, std::size_t first) {
  Number number{};
  std::memcpy(&number, bytes.data() + first, sizeof number);
  return number;
}

struct Rudeness {
  std::string_view before;  // sent at once
  bool opens;               // a WebSocket
  int status;               // of the response; 0: none
  unsigned closeCode;       // 0: none
};

// By the value of the step. The first is not HTTP, the second not complete, the last closes at
// once.
constexpr std::array<Rudeness, 8> rudenesses = {
    {{"\x16\x03\x01 \xFF\xFE what?\r\n\r\n", false, 400, 0},
     {"GET /live HT", false, 0, 0},
     {"", true, 101, 1003},
     {"", true, 101, 1009},
     {"", true, 101, 0},
     {"POST / HTTP/1.1\r\n\r\n", false, 405, 0},
     {"", true, 101, 1002},
     {"", true, 0, 0}}};

// What is sent on the WebSocket in each turn.
std::string rudeFrame(int kind) {
  switch (kind) {
    case 2:
      return clientFrame({.payload = "hello"});
    case 3:
      return clientFrame({.payload = std::string(2'000, 'x')});
    case 4:
      return clientFrame({.kind = web::ping, .payload = std::string(100, 'x')});
    default:
      return clientFrame({.masked = false, .payload = "hello"});
  }
}

}  // namespace

SimulatedViewer::SimulatedViewer(std::size_t atATime, std::uint64_t before)
    : client_(Network::connect()), atATime_(atATime), before_(before), behindTurns_(recoveryTurns) {
  if (!client_.open()) fail("the server does not accept it");
  client_.send(PageClient::request("/live"));
}

void SimulatedViewer::fail(const std::string& what) {
  if (wrong_.empty()) wrong_ = "a viewer: " + what;
}

void SimulatedViewer::stallEnds() {
  behindTurns_ = recoveryTurns;
  if (atATime_ == 0) backlog_ = Backlog{VirtualTime::now() - 2s, client_.waiting(), 0};
}

void SimulatedViewer::leave(int how) {
  left_ = true;
  // A frame must not be sent before the handshake is complete.
  if (how == 1 && client_.status() != 101) how = 0;
  if (how == 0) client_.close();
  if (how == 1) client_.send(clientFrame({.kind = web::closing, .payload = "\x03\xE8"}));
  if (how == 2) client_.closeSending();
}

void SimulatedViewer::turn(const Session& session) {
  if (session.stalled) {
    behindTurns_ = recoveryTurns;
    return;
  }
  client_.receive(atATime_ == 0 ? PageClient::everything : atATime_);
  if (client_.status() != 0 && client_.status() != 101) {
    fail("status " + std::to_string(client_.status()));
  }
  while (const auto frame = client_.next()) take(session, *frame);
  if (!client_.wrong().empty()) fail(client_.wrong());
  if (behindTurns_ > 0) --behindTurns_;
}

void SimulatedViewer::take(const Session& session, const web::ServerFrame& frame) {
  const std::size_t size = frame.payload.size();
  if (backlog_ && backlog_->inSocket > 0) {
    backlog_->inSocket -= std::min(backlog_->inSocket, size);
  } else if (backlog_ && frame.kind == web::binary && size >= 24 &&
             std::chrono::duration<double>(backlog_->until).count() >
                 numberAt<double>(frame.payload, 16)) {
    backlog_->samples += size;
    if (backlog_->samples > session.queueLimit + oneMessage) fail("more waited than is allowed");
  }
  switch (frame.kind) {
    case web::text:
      return takeText(frame.payload);
    case web::binary:
      return takeSamples(session, frame.payload);
    case web::closing:
      closeCode_ = frame.closeCode().value_or(0);
      client_.send(clientFrame({.kind = web::closing, .payload = frame.payload}));
      return;
    default:
      return fail("a frame of kind " + std::to_string(frame.kind));
  }
}

void SimulatedViewer::takeText(const std::string& text) {
  const bool hello = text.find(R"("type":"hello")") != std::string::npos;
  if (hello == std::exchange(helloReceived_, true)) fail("hello is not the first message");
  // The samples of the last 30 s follow.
  if (hello) behindTurns_ = recoveryTurns;
  if (final_) fail("a message follows the final state");
  final_ = text.find(R"("ended":true)") != std::string::npos;
  if (text.find(R"("type":"lost")") == std::string::npos) return;
  const auto json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded()) return fail("a text that is not JSON");
  lostMessages_ += json.at("messages").get<std::uint64_t>();
  for (std::size_t i = 0; i < curves_.size(); ++i) {
    curves_.at(i).counted += json.at("samples").at(curveNames.at(i)).get<std::uint64_t>();
  }
}

void SimulatedViewer::takeSamples(const Session& session, const std::string& bytes) {
  if (bytes.size() < 24 || bytes[0] != 1 || bytes[1] < 0 || bytes[1] > 3) {
    return fail("a message that is none of samples");
  }
  const auto which = static_cast<std::size_t>(bytes[1]);
  const auto count = numberAt<std::uint32_t>(bytes, 4);
  const auto index = numberAt<std::uint64_t>(bytes, 8);
  if (bytes.size() != 24 + count * sizeof(float) * (which == 3 ? 2 : 1)) fail("a message is cut");
  Curve& curve = curves_.at(which);
  if (curve.next && index != *curve.next + curve.counted) {
    fail("sample " + std::to_string(index) + " of " + std::string(curveNames.at(which)) +
         " follows sample " + std::to_string(*curve.next) + ", and " +
         std::to_string(curve.counted) + " were reported lost");
  }
  curve = {index + count, 0};
  const std::chrono::duration<double> late =
      VirtualTime::now() - std::chrono::duration<double>(numberAt<double>(bytes, 16));
  if (atATime_ == 0 && behindTurns_ == 0 && late > soon) fail("samples are late");
  if (which != 0) return;
  for (std::uint64_t i = 0; i < count; ++i) {
    const bool known = index + i < session.ecg.size();
    if (!known || std::bit_cast<std::uint32_t>(session.ecg.at(index + i)) !=
                      numberAt<std::uint32_t>(bytes, 24 + i * sizeof(float))) {
      return fail("another ECG sample");
    }
  }
}

std::string SimulatedViewer::judge(std::optional<std::uint64_t> due) const {
  if (!wrong_.empty()) return wrong_;
  const bool read = atATime_ == 0 && !left_ && behindTurns_ == 0;
  if (!due || !read) return {};
  const Curve& ecg = curves_.front();
  const std::uint64_t received = ecg.next.value_or(0) + ecg.counted;
  if (*due > before_ && received < *due) {
    return "a viewer: " + std::to_string(*due - received) + " ECG samples are missing at the end";
  }
  if (!final_) return "a viewer: the final state is missing";
  if (closeCode_ != 1001) return "a viewer: closed with code " + std::to_string(closeCode_);
  return {};
}

// All of them -------------------------------------------------------------------------------------

void Viewers::value(const Zephly::simulator::Frame& frame) {
  if (frame.stream != Zephly::Stream::ecg) return;
  const Zephly::hosts::Data data(frame.bytes);
  for (const float sample : FrameDecoders::calculateECGValue(data)) ecg_.push_back(sample);
}

void Viewers::apply(MainQueue& queue, const Step& step) {
  if (!turnTimer_.active()) turn(queue);
  switch (step.action) {
    case Action::viewerOpens:
      viewers_.emplace_back(static_cast<std::size_t>(step.value), ecg_.size());
      return;
    case Action::viewerLeaves:
      if (left_ < viewers_.size()) viewers_.at(left_++).leave(step.value);
      return;
    case Action::viewersStall:
      ++stalled_;
      timers_.push_back(queue.after(step.length, [this] {
        const Spared spared;
        if (--stalled_ > 0) return;
        for (SimulatedViewer& viewer : viewers_) viewer.stallEnds();
      }));
      return;
    default: {
      rude_.push_back({PageClient(Network::connect()), step.value, VirtualTime::now(), false});
      const Rudeness& rudeness = rudenesses.at(static_cast<std::size_t>(step.value));
      PageClient& client = rude_.back().client;
      client.send(rudeness.opens ? PageClient::request("/live") : std::string(rudeness.before));
      if (rudeness.opens && rudeness.status == 0) client.close();
    }
  }
}

void Viewers::turn(MainQueue& queue) {
  const SimulatedViewer::Session session{ecg_, queueLimit_, stalled_ > 0};
  for (SimulatedViewer& viewer : viewers_) viewer.turn(session);
  for (Rude& rude : rude_) turnRude(rude);
  turnTimer_ = queue.after(turnInterval, [this, &queue] {
    const Spared spared;
    turn(queue);
  });
}

void Viewers::turnRude(Rude& rude) {
  if (rude.done) return;
  const Rudeness& rudeness = rudenesses.at(static_cast<std::size_t>(rude.kind));
  const auto wrong = [&](const std::string& what) {
    rude.done = true;
    if (wrong_.empty()) {
      wrong_ = "a client that breaks the protocol (" + std::to_string(rude.kind) + "): " + what;
    }
  };
  rude.client.receive(PageClient::everything);
  const int status = rude.client.status();
  if (status != 0 && status != rudeness.status) return wrong("status " + std::to_string(status));
  if (status == 101 && rude.client.open()) rude.client.send(rudeFrame(rude.kind));
  while (const auto frame = rude.client.next()) {
    if (frame->kind != web::closing) continue;
    const unsigned code = frame->closeCode().value_or(0);
    if (code != rudeness.closeCode && code != 1001) wrong("code " + std::to_string(code));
    rude.client.close();
  }
  if (!rude.client.wrong().empty()) wrong(rude.client.wrong());
  if (!rude.client.open()) rude.done = true;
  const Duration limit = rudeness.closeCode != 0 ? closeLimit : requestLimit;
  const bool closes = rudeness.closeCode != 0 || rudeness.status != 101;
  if (!rude.done && closes && VirtualTime::now() > rude.since + limit) wrong("it is not closed");
}

std::string Viewers::judge(std::optional<std::uint64_t> due) {
  turnTimer_.cancel();
  const SimulatedViewer::Session session{ecg_, queueLimit_, stalled_ > 0};
  for (SimulatedViewer& viewer : viewers_) {
    viewer.turn(session);
    std::string verdict = viewer.judge(due);
    if (!verdict.empty()) return verdict;
  }
  return wrong_;
}

std::uint64_t Viewers::lost() const {
  std::uint64_t sum = 0;
  for (const SimulatedViewer& viewer : viewers_) sum += viewer.lost();
  return sum;
}

}  // namespace schedules
