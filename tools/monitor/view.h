// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The ways in which the monitor shows a session: JSON lines, a screen that is redrawn, or plain
/// lines.

#include <tools/common/output.h>
#include <tools/monitor/screen.h>
#include <tools/monitor/terminal_view.h>
#include <tools/watch/event.h>
#include <tools/watch/session_model.h>
#include <tools/watch/summary.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace Zephly::monitor {

class View {
 public:
  virtual ~View() = default;

  /// Wall time between two refreshes.
  static constexpr std::chrono::milliseconds refreshInterval{100};

  /// Receives every event.
  virtual void take(const watch::Event& event) = 0;
  /// Every refreshInterval.
  virtual void refresh() = 0;
  /// Whether the source shall wait because the reader of the output is slower.
  virtual bool holdsSource() { return false; }
  /// The last call.
  virtual void finish(const watch::Summary& summary) = 0;

  /// The terminal has changed its size.
  virtual void resized() {}
  /// Restores the terminal while the program is stopped.
  virtual void suspend() {}
  virtual void resume() {}

 protected:
  View() = default;
  View(const View&) = default;
  View& operator=(const View&) = default;
};

class JsonView final : public View {
 public:
  /// `patience`: how long the source is held up for a reader that takes nothing.
  JsonView(tools::Output& output, std::chrono::milliseconds patience)
      : output_(output), patience_(patience) {}

  void take(const watch::Event& event) override;
  void refresh() override;
  bool holdsSource() override;
  void finish(const watch::Summary& summary) override;

 private:
  void reportDropped(StrapTime time);

  tools::Output& output_;
  std::chrono::milliseconds patience_;
  std::uint64_t reportedDropped_ = 0;
};

/// The contents of the views for people.
struct Watched {
  const watch::SessionModel& model;
  /// With the current time and title.
  std::function<ViewOptions()> options;
};

class ScreenView final : public View {
 public:
  /// `descriptor`: the terminal that `output` writes to.
  ScreenView(tools::Output& output, int descriptor, Colors colors, Watched watched);

  void take(const watch::Event& event) override;
  void refresh() override;
  void finish(const watch::Summary& summary) override;
  void resized() override;
  void suspend() override;
  void resume() override;

 private:
  tools::Output& output_;
  int descriptor_;
  Watched watched_;
  std::unique_ptr<Screen> screen_;
  TerminalSize size_;
};

/// For terminals without cursor movement: a line every second, and the lines of the host.
class LineView final : public View {
 public:
  LineView(tools::Output& output, Watched watched);

  void take(const watch::Event& event) override;
  void refresh() override;
  void finish(const watch::Summary& summary) override;

 private:
  tools::Output& output_;
  Watched watched_;
  int refreshes_ = 0;
};

}  // namespace Zephly::monitor
