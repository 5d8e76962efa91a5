#pragma once
/// @file
/// Sessions that are recorded, and the same ones replayed: who hears them writes everything down.
///
///   LiveWorld world;
///   world.scheduler.advance(30s);
///   const Replayed again = replay(scratch.file("walk.zcap", captures::captureOf(world.end())));
///   EXPECT_TRUE(sameSession(world.heard(), again.heard));

#include <capture/record.h>
#include <capture/tap_host.h>
#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <tools/watch/diagnostics_catcher.h>
#include <tools/watch/receiver.h>
#include <tools/watch/source.h>
#include <zephly/session/zephly.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sessions {

/// What came of a session.
struct Heard {
  std::vector<std::string> events;  ///< every callback and line, see eventBits()
  std::vector<std::string> lines;   ///< what the kit wrote, character for character

  /// Events of a kind: the index in watch::Event::what.
  std::size_t count(std::size_t kind) const;
};

/// Says where the two begin to differ.
testing::AssertionResult sameSession(const Heard& expected, const Heard& actual);

/// A session on the host in use, with an application that listens to all of it.
class Listener {
 public:
  /// `workout`: repetitions are told to the application, too.
  explicit Listener(Zephly::watch::Receiver::Clock clock, bool workout = true);

  const Heard& heard() const { return heard_; }

 private:
  Heard heard_;
  std::shared_ptr<Zephly::watch::Receiver> receiver_;
  Zephly::watch::DiagnosticsCatcher catcher_;
  std::shared_ptr<::Zephly::Zephly> session_;
};

/// A simulated strap in training, a session on it, and somebody who listens in.
class LiveWorld {
 public:
  explicit LiveWorld(const Zephly::simulator::StrapOptions& options = {.seed = 5});

  /// What happened up to now, with the Ended record. The last call.
  std::vector<Zephly::capture::Record> end();
  const Heard& heard() const { return listener_->heard(); }

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
  Heard heard;
  Zephly::watch::SourceReport report;
};

/// The whole file; without a speed as fast as the machine goes.
Replayed replay(const std::filesystem::path& file, std::optional<double> speed = std::nullopt,
                std::optional<Zephly::simulator::StrapTime> duration = std::nullopt);

}  // namespace sessions
