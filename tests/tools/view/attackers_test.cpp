// SPDX-License-Identifier: MIT
// `zephly view` under attack: somebody with the token gets in, and the session is not delayed.

#include <tests/support/process.h>
#include <tests/tools/view/attackers.h>
#include <tests/tools/view/visitor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iostream>
#include <optional>
#include <regex>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using attack::Attackers;
using attack::Visitor;
using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;
using Seconds = std::chrono::duration<double>;

// What a viewer of the page sees of the session.
class Watch {
 public:
  void take(const Visitor::Message& message) {
    if (message.binary) {
      takeSamples(message.bytes);
      return;
    }
    const Json json = Json::parse(message.bytes);
    const std::string type = json.at("type");
    if (type == "lost") ++lost_;
    if (type == "state") takeState(json);
  }

  std::uint64_t states() const { return states_; }
  const Json& state() const { return state_; }
  // Messages about dropped samples.
  std::uint64_t lost() const { return lost_; }
  // ECG samples that are missing between two messages.
  std::uint64_t missing() const { return missing_; }
  std::uint64_t samples() const { return samples_; }

 private:
  template <class Number>
  static Number at(const std::string& bytes, std::size_t position) {
    Number number{};
    std::memcpy(&number, bytes.data() + position, sizeof number);
    return number;
  }

  void takeSamples(const std::string& bytes) {
    constexpr char ecg = 0;
    if (bytes.at(1) != ecg) return;
    const auto count = at<std::uint32_t>(bytes, 4);
    const auto first = at<std::uint64_t>(bytes, 8);
    if (samples_ > 0) missing_ += first - next_;
    next_ = first + count;
    samples_ += count;
  }

  void takeState(const Json& json) {
    ++states_;
    state_ = json;
  }

  Json state_;
  std::uint64_t states_ = 0;
  std::uint64_t lost_ = 0;
  std::uint64_t missing_ = 0;
  std::uint64_t samples_ = 0;
  std::uint64_t next_ = 0;
};

class AttackersTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(program.readUntil(std::regex("token=[0-9a-f]{32}\n")));
    std::smatch parts;
    const std::string& line = program.outputSoFar();
    ASSERT_TRUE(std::regex_search(line, parts, std::regex(":([0-9]+)/\\?token=([0-9a-f]+)")));
    port = static_cast<std::uint16_t>(std::stoul(parts[1]));
    token = parts[2];
  }

  // Watches until `condition` holds; false when nothing comes.
  static bool watchUntil(Visitor& visitor, Watch& watch, const std::function<bool()>& condition) {
    while (!condition()) {
      const auto message = visitor.next();
      if (!message) return false;
      watch.take(*message);
    }
    return true;
  }

  // How long it takes to open the page until the first samples; empty when that fails.
  std::optional<Seconds> visit() {
    const auto began = Clock::now();
    Visitor visitor(port, token);
    if (!visitor.openPage() || !visitor.watch()) {
      ADD_FAILURE() << visitor.problem();
      return std::nullopt;
    }
    for (;;) {
      const auto message = visitor.next();
      if (!message) {
        ADD_FAILURE() << visitor.problem();
        return std::nullopt;
      }
      if (message->binary) return Clock::now() - began;
      const Json json = Json::parse(message->bytes);
      // The session is more than a second late when it says that the machine is slower.
      if (json.at("type") == "hello") {
        EXPECT_EQ(json.at("pace"), "");
      }
    }
  }

  Process program{{"view", "--simulated", "--port", "0", "--listen", "127.0.0.1"}};
  std::uint16_t port = 0;
  std::string token;
};

// How many connections of a kind the server has to deal with before the attack ends.
struct Goal {
  const char* kind;
  std::atomic<std::uint64_t> attack::Count::*count;
  std::uint64_t least;
};

constexpr std::array<Goal, 8> goals = {{{"silent", &attack::Count::closed, 128},
                                        {"half request", &attack::Count::closed, 20},
                                        {"endless headers", &attack::Count::answered, 8},
                                        {"without token", &attack::Count::closed, 8},
                                        {"hasty", &attack::Count::opened, 1000},
                                        {"deaf viewer", &attack::Count::opened, 52},
                                        {"pings", &attack::Count::closed, 4},
                                        {"fragments", &attack::Count::closed, 4}}};

// There is a visit about every 0.2 s.
constexpr std::size_t fewestVisits = 20;
constexpr std::size_t mostVisits = 60;
// None of the attackers has it, so that a connection without the token is left alone, too.
constexpr std::uint8_t anotherAddress = 9;

TEST_F(AttackersTest, SomebodyWithTheTokenGetsInAndTheSessionGoesOn) {
  Visitor viewer(port, token);
  ASSERT_TRUE(viewer.openPage() && viewer.watch()) << viewer.problem();
  Watch watch;
  ASSERT_TRUE(watchUntil(viewer, watch, [&] { return watch.states() > 5; }));
  const Json before = watch.state();
  Visitor keeper(port, token);
  ASSERT_TRUE(keeper.openPage()) << keeper.problem();

  Attackers attackers(port, attack::plansFor(port, token));
  attackers.start();
  const auto reached = [&](const Goal& goal) {
    return attackers.count(goal.kind).*goal.count >= goal.least;
  };
  std::vector<double> times;
  while (times.size() < fewestVisits ||
         (times.size() < mostVisits && !std::ranges::all_of(goals, reached))) {
    const auto time = visit();
    ASSERT_TRUE(time);
    times.push_back(time->count());
    // What the browser has kept open stays open: it has sent the token.
    ASSERT_TRUE(keeper.openAgain()) << keeper.problem();
    if (times.size() % 5 == 0) {
      Visitor slow(port, token, anotherAddress);
      ASSERT_TRUE(slow.openSlowly(200ms)) << slow.problem();
    }
    const auto seen = watch.states();
    ASSERT_TRUE(watchUntil(viewer, watch, [&] { return watch.states() > seen; }))
        << viewer.problem();
  }
  for (const Goal& goal : goals) EXPECT_TRUE(reached(goal)) << goal.kind;
  attackers.stop();

  EXPECT_EQ(watch.lost(), 0U);
  EXPECT_EQ(watch.missing(), 0U);
  const Json& after = watch.state();
  const Json& ecg = after.at("streams").at("ecg");
  EXPECT_EQ(ecg.at("longestGap"), before.at("streams").at("ecg").at("longestGap"));
  EXPECT_EQ(ecg.at("missing"), 0);
  std::ranges::sort(times);
  std::cout << times.size() << " visits: median " << times[times.size() / 2] << " s, longest "
            << times.back() << " s; " << attackers.opened() << " connections\n";
  program.sendSignal(SIGTERM);
  const Finished run = program.finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
}

}  // namespace
