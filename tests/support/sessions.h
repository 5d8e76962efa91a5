// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Records sessions and replays them; a listener records all events of both.
///
///   LiveWorld world;
///   world.scheduler.advance(30s);
///   const Replayed again = replay(scratch.file("walk.zcap", captures::captureOf(world.end())));
///   EXPECT_TRUE(sameSession(world.received(), again.received));

#include <capture/record.h>
#include <capture/tap_host.h>
#include <hosts/foundation/observation.h>
#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <tests/support/console_lines.h>
#include <tools/watch/receiver.h>
#include <tools/watch/source.h>
#include <zephly/protocol/strap_time.h>
#include <zephly/session/zephly.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sessions {

/// The events of a session.
struct ReceivedSession {
  std::vector<std::string> events;  ///< every callback and line, see eventBits()
  std::vector<std::string> lines;   ///< the kit's console output, character by character

  /// Events of a kind: the index in watch::Event::what.
  std::size_t count(std::size_t kind) const;
};

/// Reports the first difference.
testing::AssertionResult sameSession(const ReceivedSession& expected,
                                     const ReceivedSession& actual);

/// A session on the current host, with an application that records all events.
class Listener {
 public:
  /// `workout`: repetitions are reported to the application, too.
  explicit Listener(Zephly::watch::Receiver::Clock clock, bool workout = true);

  const ReceivedSession& received() const { return received_; }

 private:
  ReceivedSession received_;
  std::shared_ptr<Zephly::watch::Receiver> receiver_;
  ConsoleLines console_{received_.lines};
  Zephly::hosts::Observation observation_;
  std::shared_ptr<::Zephly::Zephly> session_;
};

/// A simulated strap in training, a session on it, and a tap that records it.
class LiveWorld {
 public:
  explicit LiveWorld(const Zephly::simulator::StrapOptions& options = {.seed = 5});

  /// Everything recorded up to now, with the Ended record. Must be the last call.
  std::vector<Zephly::capture::Record> end();
  const ReceivedSession& received() const { return listener_->received(); }

  Zephly::simulated::Scheduler scheduler;
  Zephly::simulated::Radio radio{scheduler};
  Zephly::simulated::Device& device;
  Zephly::simulator::Strap wearer;
  Zephly::simulated::StrapDevice strap;

 private:
  std::vector<Zephly::capture::Record> records_;
  std::optional<Zephly::capture::TapHost> tap_;
  std::optional<Listener> listener_;
};

struct Replayed {
  ReceivedSession received;
  Zephly::watch::SourceReport report;
};

/// Replays the whole file; without a speed, as fast as possible.
Replayed replay(const std::filesystem::path& file, std::optional<double> speed = std::nullopt,
                std::optional<Zephly::StrapTime> duration = std::nullopt);

}  // namespace sessions
