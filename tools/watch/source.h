// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The source of a session: the host that the session runs on, and the clock for the times of its
/// events.
///
///   const std::unique_ptr<Source> source = ...;  // its host is in use from now on
///   auto session = ::Zephly::Zephly::init(receiver);
///   source->start();
///   queue.run();
///   const SourceReport report = source->finish();

#include <tools/watch/summary.h>
#include <zephly/protocol/strap_time.h>

#include <functional>
#include <string>

namespace Zephly::watch {

class Source {
 public:
  Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  /// Afterwards its host is not the current one.
  virtual ~Source() = default;

  /// The source as text.
  virtual std::string title() const = 0;
  /// The speed as text; empty in real time.
  virtual std::string pace() const = 0;

  /// Time runs from now on. While `held` returns true, a source that can wait does: a simulated
  /// strap and a replay, not a real strap. An empty `held` never holds.
  virtual void start(std::function<bool()> held) = 0;
  void start() { start({}); }
  /// Time since start(). Constant once the source has ended.
  virtual StrapTime now() const = 0;
  /// Ends the source and returns its report of the session. Call it once, and not from inside a
  /// callback of the session.
  virtual SourceReport finish() = 0;
};

}  // namespace Zephly::watch
