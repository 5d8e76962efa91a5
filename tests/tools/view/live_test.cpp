// SPDX-License-Identifier: MIT
// Viewers: each gets everything, and none delays the others.

#include <hosts/foundation/observation.h>
#include <hosts/main_queue/file_descriptor.h>
#include <hosts/main_queue/main_queue.h>
#include <tools/view/message_feed.h>
#include <tools/watch/receiver.h>
#include <tools/watch/simulated_source.h>
#include <zephly/session/zephly.h>

#include <tests/support/long_run.h>
#include <tests/tools/view/decoded.h>
#include <tests/tools/view/world.h>
#include <zephly/session/signal_processor.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::view {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;

Message text(const std::string& letter) { return textMessage(Message::Kind::other, letter); }

TEST(LiveTest, AViewerGetsAGreetingAndThenAllMessages) {
  World world;
  world.greet = [] {
    return std::vector<Message>{text("hello"), samplesMessage(Trace::ecg, 0, 0, std::array{1.0F})};
  };
  LiveClient client(world);
  ASSERT_TRUE(world.runUntil([&] { return client.messages().size() == 2; }));
  world.server->send(text("more"));
  ASSERT_TRUE(world.runUntil([&] { return client.messages().size() == 3; }));
  EXPECT_EQ(client.messages()[0].bytes, "hello");
  EXPECT_FALSE(client.messages()[0].binary);
  EXPECT_TRUE(client.messages()[1].binary);
  EXPECT_EQ(client.messages()[2].bytes, "more");
}

TEST(LiveTest, ServesASocketThatWasOpenedElsewhere) {
  World world;
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const main_queue::FileDescriptor client(ends[0]);
  boost::asio::ip::tcp::socket socket(world.context);
  socket.assign(boost::asio::ip::tcp::v4(), ends[1]);
  world.server->serve(std::move(socket), boost::asio::ip::make_address("192.0.2.7"));
  const std::string request = "GET /live HTTP/1.1\r\nHost: " + world.host() +
                              "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                              "Sec-WebSocket-Version: 13\r\n"
                              "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
  ASSERT_EQ(::write(client.get(), request.data(), request.size()),
            static_cast<ssize_t>(request.size()));
  ASSERT_TRUE(world.runUntil([&] { return !world.lines.empty(); }));
  EXPECT_THAT(world.lines, ElementsAre("Viewer 1 from 192.0.2.7 connected; 1 watching."));
}

TEST(LiveTest, ReportsConnectingAndDisconnectingViewers) {
  World world;
  {
    LiveClient first(world);
    ASSERT_TRUE(world.runUntil([&] { return first.open(); }));
    LiveClient second(world);
    ASSERT_TRUE(world.runUntil([&] { return second.open(); }));
    EXPECT_THAT(world.lines, ElementsAre("Viewer 1 from 127.0.0.1 connected; 1 watching.",
                                         "Viewer 2 from 127.0.0.1 connected; 2 watching."));
    world.lines.clear();
  }
  // They disconnected without a close frame.
  ASSERT_TRUE(world.runUntil([&] {
    world.server->send(text("x"));
    return world.server->viewers() == 0;
  }));
  ASSERT_THAT(world.lines, SizeIs(2));
  EXPECT_THAT(world.lines[1],
              MatchesRegex("Viewer [12] disconnected after 0:0[0-9]; 0 watching\\."));
}

TEST(LiveTest, ALargeMessageIsOneMessage) {
  World world;
  LiveClient client(world);
  ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
  const std::string large(3'000'000, 'x');
  world.server->send(text(large));
  ASSERT_TRUE(world.runUntil([&] { return client.messages().size() == 1; }));
  EXPECT_EQ(client.messages()[0].bytes, large);
}

TEST(LiveTest, ReportsTheEndAfterQueuedMessages) {
  World world;
  LiveClient client(world);
  ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
  for (int i = 0; i < 100; ++i) world.server->send(text(std::string(10'000, 'x')));
  bool closed = false;
  world.server->close([&] { closed = true; });
  ASSERT_TRUE(world.runUntil([&] { return closed && client.closed(); }));
  EXPECT_THAT(client.messages(), SizeIs(100));
  EXPECT_EQ(client.closeCode(), 1001);
  EXPECT_EQ(world.server->viewers(), 0U);
}

TEST(LiveTest, SendsNothingThatComesAfterTheEnd) {
  World world;
  LiveClient client(world);
  ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
  for (int i = 0; i < 100; ++i) world.server->send(text(std::string(10'000, 'x')));
  world.server->close([] {});
  world.server->send(text("late"));
  ASSERT_TRUE(world.runUntil([&] { return client.closed(); }));
  EXPECT_THAT(client.messages(), SizeIs(100));
}

TEST(LiveTest, DestroyingTheServerEndsAllConnections) {
  World world;
  LiveClient client(world);
  RawClient raw(world);
  ASSERT_TRUE(world.runUntil([&] { return client.open(); }));
  world.lines.clear();
  world.server.reset();
  EXPECT_TRUE(world.runUntil([&] { return client.closed() && raw.closed(); }));
  EXPECT_THAT(world.lines, testing::IsEmpty());
}

TEST(LiveTest, AcceptsTheTokenInCookieOrAddress) {
  ServerOptions options;
  options.token = "0a1b";
  World world(options);
  LiveClient without(world);
  LiveClient wrong(world, {.target = "/live?token=0a1c"});
  ASSERT_TRUE(world.runUntil([&] { return without.closed() && wrong.closed(); }));
  EXPECT_EQ(without.refusal(), 403U);
  EXPECT_EQ(wrong.refusal(), 403U);
  LiveClient byAddress(world, {.target = "/live?token=0a1b"});
  const std::string cookie = "zephly-view-" + std::to_string(world.server->port()) + "=0a1b";
  LiveClient byCookie(world,
                      {.headers = {{"Cookie", cookie}, {"Origin", "http://" + world.host()}}});
  EXPECT_TRUE(world.runUntil([&] { return byAddress.open() && byCookie.open(); }));
}

// The ECG samples that one viewer lost and received, in order.
struct Account {
  std::uint64_t lost = 0;
  std::uint64_t got = 0;
};

Account accountOf(const LiveClient& client) {
  Account account;
  for (const auto& message : client.messages()) {
    if (!message.binary) {
      const json parsed = json::parse(message.bytes);
      if (parsed.at("type") == "lost") {
        account.lost += parsed.at("samples").at("ecg").get<std::uint64_t>();
      }
      continue;
    }
    const Samples samples = decoded(message.bytes);
    // The loss was reported before, with the exact number of samples missing here.
    EXPECT_EQ(samples.index, account.lost + account.got);
    account.got += samples.count;
  }
  return account;
}

// A server with small queues for its viewers.
ServerOptions tight() {
  ServerOptions options;
  options.limits.queueBytes = std::size_t{64} * 1024;
  options.limits.socketBytes = 16 * 1024;
  return options;
}

TEST(SlowViewerTest, LosesTheOldestSamplesGetsTheirNumberAndDelaysNoOthers) {
  World world(tight());
  LiveClient slow(world, {.receiveBuffer = 16 * 1024, .reads = false});
  LiveClient quick(world);
  ASSERT_TRUE(world.runUntil([&] { return slow.open() && quick.open(); }));
  constexpr std::uint64_t batches = 4000;
  constexpr std::uint64_t batch = 1000;
  const std::vector<float> values(batch, 0.5F);
  for (std::uint64_t i = 0; i < batches; ++i) {
    world.server->send(samplesMessage(Trace::ecg, i * batch, 0, values));
    ASSERT_TRUE(world.runUntil([&] { return quick.messages().size() == i + 1; }));
  }
  EXPECT_EQ(accountOf(quick).got, batches * batch);

  slow.read();
  world.server->send(text(R"({"type":"last"})"));
  ASSERT_TRUE(world.runUntil([&] {
    return !slow.messages().empty() && slow.messages().back().bytes == R"({"type":"last"})";
  }));
  const Account account = accountOf(slow);
  EXPECT_EQ(account.got + account.lost, batches * batch);
  // Of 16 MB it received only the content of the queue and of both sockets.
  EXPECT_LT(account.got * sizeof(float), 1024U * 1024);
  EXPECT_GT(account.got, 0U);
  EXPECT_EQ(decoded(slow.messages()[slow.messages().size() - 2].bytes).index,
            (batches - 1) * batch);
}

TEST(SlowViewerTest, ItsLossIsReportedWhenItDisconnects) {
  World world(tight());
  auto slow = std::make_unique<LiveClient>(
      world, LiveClient::Options{.receiveBuffer = 16 * 1024, .reads = false});
  ASSERT_TRUE(world.runUntil([&] { return slow->open(); }));
  const std::vector<float> values(1000, 0.5F);
  for (std::uint64_t i = 0; i < 1000; ++i) {
    world.server->send(samplesMessage(Trace::ecg, i * 1000, 0, values));
    world.context.poll();
  }
  slow.reset();
  ASSERT_TRUE(world.runUntil([&] { return world.server->viewers() == 0; }));
  EXPECT_THAT(world.lines.back(), HasSubstr("; too slow, "));
}

TEST(SlowViewerTest, IsDisconnectedWhenItReadsNothingForLong) {
  ServerOptions options = tight();
  options.limits.stalled = 50ms;
  World world(options);
  LiveClient slow(world, {.receiveBuffer = 16 * 1024, .reads = false});
  ASSERT_TRUE(world.runUntil([&] { return slow.open(); }));
  const std::vector<float> values(1000, 0.5F);
  std::uint64_t index = 0;
  EXPECT_TRUE(world.runUntil([&] {
    world.server->send(samplesMessage(Trace::ecg, 1000 * index++, 0, values));
    return world.server->viewers() == 0;
  }));
}

TEST(SlowViewerTest, AStoppedViewerDoesNotDelayClosing) {
  World world(tight());
  LiveClient slow(world, {.receiveBuffer = 16 * 1024, .reads = false});
  ASSERT_TRUE(world.runUntil([&] { return slow.open(); }));
  for (int i = 0; i < 100; ++i) {
    world.server->send(samplesMessage(Trace::ecg, 0, 0, std::vector<float>(1000)));
  }
  world.server->close([] {});
  world.context.poll();
  world.server.reset();
  EXPECT_THAT(world.lines, SizeIs(1));
}

bool sameSamples(const std::vector<float>& left, const std::vector<float>& right) {
  return left.size() == right.size() &&
         std::memcmp(left.data(), right.data(), left.size() * sizeof(float)) == 0;
}

// A whole session with a receiver and viewers.
class SessionTest : public testing::Test {
 protected:
  void SetUp() override {
    world.greet = [this] {
      return feed.greeting({.title = source->title(), .now = source->now()});
    };
    source = std::make_unique<watch::SimulatedSource>(
        queue, watch::SimulatedOptions{.seed = 5, .speed = 500}, [] {});
  }

  void take(const watch::Event& event) {
    if (const auto* ecg = std::get_if<watch::EcgSample>(&event.what)) {
      delivered[0].push_back(ecg->value);
      delivered[1].push_back(filter->processECG(ecg->value));
    } else if (const auto* breath = std::get_if<watch::RespirationSample>(&event.what)) {
      delivered[2].push_back(breath->value);
    } else if (const auto* motion = std::get_if<watch::MotionSample>(&event.what)) {
      delivered[3].push_back(motion->highPassed);
      delivered[3].push_back(motion->displacement);
    }
    feed.take(event);
  }

  void tick() {
    feed.tick(source->now());
    ticks = queue.after(1ms, [this] { tick(); });
  }

  // The samples of this viewer, without gaps.
  static std::array<std::vector<float>, 4> valuesOf(const LiveClient& client,
                                                    std::array<std::uint64_t, 4>& first) {
    std::array<std::vector<float>, 4> values;
    std::array<double, 4> lastTime{-1, -1, -1, -1};
    for (const auto& message : client.messages()) {
      if (!message.binary) {
        EXPECT_NE(json::parse(message.bytes).at("type"), "lost");
        continue;
      }
      const Samples samples = decoded(message.bytes);
      const auto trace = static_cast<std::size_t>(samples.trace);
      if (values[trace].empty()) first[trace] = samples.index;
      EXPECT_EQ(samples.index,
                first[trace] + values[trace].size() / valuesPerSample(samples.trace));
      EXPECT_GT(samples.seconds, lastTime[trace]);
      lastTime[trace] = samples.seconds;
      values[trace].insert(values[trace].end(), samples.values.begin(), samples.values.end());
    }
    return values;
  }

  static json lastState(const LiveClient& client) {
    const auto& all = client.messages();
    const auto last = std::find_if(all.rbegin(), all.rend(), [](const auto& message) {
      return !message.binary && json::parse(message.bytes).at("type") == "state";
    });
    return last == all.rend() ? json() : json::parse(last->bytes);
  }

  World world;
  main_queue::MainQueue queue{world.context};
  MessageFeed feed{[this](const Message& message) { world.server->send(message); }};
  std::unique_ptr<watch::SimulatedSource> source;
  std::shared_ptr<watch::Receiver> receiver = std::make_shared<watch::Receiver>(
      [this] { return source->now(); }, [this](const watch::Event& event) { take(event); });
  hosts::Observation observation{*receiver};
  std::shared_ptr<::SignalProcessor> filter = ::SignalProcessor::init();
  std::array<std::vector<float>, 4> delivered;  // by trace
  main_queue::Timer ticks;
};

TEST_F(SessionTest, TwentyViewersGetEverySampleBitForBitAndALateOneTheRest) {
  std::array<std::unique_ptr<LiveClient>, longRun<std::size_t>(20, 6)> viewers;
  for (auto& viewer : viewers) viewer = std::make_unique<LiveClient>(world);
  ASSERT_TRUE(world.runUntil([&] { return world.server->viewers() == viewers.size(); }));
  const auto session = ::Zephly::Zephly::init(receiver);
  session->startWorkoutDetection(receiver);
  source->start();
  tick();
  ASSERT_TRUE(world.runUntil([&] { return source->now() > 35s; }));
  LiveClient late(world);
  ASSERT_TRUE(world.runUntil([&] { return world.server->viewers() == viewers.size() + 1; }));
  // On a busy machine the handshake may take seconds by this clock: the session continues until it
  // is done.
  const StrapTime joined = source->now();
  ASSERT_TRUE(world.runUntil([&] { return source->now() > joined + 5s; }));
  const StrapTime end = source->now();
  source->finish();
  feed.end(end);
  bool closed = false;
  world.server->close([&] { closed = true; });
  ASSERT_TRUE(world.runUntil([&] { return closed; }));

  ASSERT_GT(delivered[0].size(), 15'000U);
  ASSERT_GT(delivered[3].size(), 1000U);
  ASSERT_GT(feed.model().disconnections(), 0U);
  for (const auto& viewer : viewers) {
    std::array<std::uint64_t, 4> first{};
    const auto values = valuesOf(*viewer, first);
    for (const Trace trace : allTraces) {
      const auto number = static_cast<std::size_t>(trace);
      EXPECT_EQ(first[number], 0U);
      EXPECT_TRUE(sameSamples(values[number], delivered[number])) << traceName(trace);
    }
    const json state = lastState(*viewer);
    EXPECT_TRUE(state.at("ended").get<bool>());
    EXPECT_EQ(state.at("streams").at("ecg").at("received"), delivered[0].size());
  }
  // The history, and everything since.
  std::array<std::uint64_t, 4> first{};
  const auto values = valuesOf(late, first);
  for (const Trace trace : allTraces) {
    const auto number = static_cast<std::size_t>(trace);
    const std::size_t missed = first[number] * valuesPerSample(trace);
    EXPECT_GT(missed, 0U);
    ASSERT_LT(missed, delivered[number].size());
    EXPECT_FALSE(values[number].empty());
    EXPECT_TRUE(sameSamples(
        values[number],
        std::vector<float>(delivered[number].begin() + static_cast<std::ptrdiff_t>(missed),
                           delivered[number].end())))
        << traceName(trace);
  }
}

}  // namespace
}  // namespace Zephly::view
