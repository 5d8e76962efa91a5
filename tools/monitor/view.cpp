// SPDX-License-Identifier: MIT
#include <tools/monitor/view.h>

#include <capture/text.h>
#include <tools/monitor/json_text.h>

#include <utility>
#include <variant>

namespace Zephly::monitor {

void JsonView::take(const watch::Event& event) {
  reportDropped(event.time);
  output_.write(jsonText(event));
}

bool JsonView::holdsSource() {
  if (output_.pending() >= tools::Output::bufferSize) output_.flush();
  return output_.pending() >= tools::Output::bufferSize && output_.stalledFor() < patience_;
}

// In place of the lines that are missing.
void JsonView::reportDropped(StrapTime time) {
  const std::uint64_t dropped = output_.droppedLines();
  if (dropped == reportedDropped_) return;
  if (output_.isFull()) return;
  output_.write(droppedJsonText(time, dropped - reportedDropped_));
  reportedDropped_ = dropped;
}

void JsonView::refresh() { output_.flush(); }

void JsonView::finish(const watch::Summary& summary) {
  const std::uint64_t dropped = output_.droppedLines() - reportedDropped_;
  if (dropped > 0) output_.writeLast(droppedJsonText(summary.duration, dropped));
  output_.writeLast(jsonText(summary));
  output_.finish();
}

ScreenView::ScreenView(tools::Output& output, int descriptor, Colors colors, Watched watched)
    : output_(output),
      descriptor_(descriptor),
      watched_(std::move(watched)),
      screen_(std::make_unique<Screen>(output, colors)) {}

void ScreenView::take(const watch::Event& /*event*/) {}

void ScreenView::refresh() {
  const TerminalSize size = terminalSize(descriptor_);
  if (size != size_) screen_->forget();
  size_ = size;
  Canvas canvas(size.width, size.height);
  drawSession(canvas, watched_.model, watched_.options());
  screen_->show(canvas);
}

void ScreenView::finish(const watch::Summary& summary) {
  screen_.reset();
  output_.write(watch::summaryText(summary));
  output_.finish();
}

void ScreenView::resized() {
  screen_->forget();
  refresh();
}

void ScreenView::suspend() { screen_->suspend(); }

void ScreenView::resume() { screen_->resume(); }

LineView::LineView(tools::Output& output, Watched watched)
    : output_(output), watched_(std::move(watched)) {}

void LineView::take(const watch::Event& event) {
  if (const auto* host = std::get_if<watch::HostLine>(&event.what)) {
    output_.write(capture::clockText(event.time) + "  " + capture::printable(host->text) + "\n");
  }
}

void LineView::refresh() {
  constexpr int refreshesPerLine = std::chrono::seconds(1) / refreshInterval;
  if (++refreshes_ % refreshesPerLine == 0) {
    output_.write(statusLine(watched_.model, watched_.options().now) + "\n");
  }
  output_.flush();
}

void LineView::finish(const watch::Summary& summary) {
  output_.write(watch::summaryText(summary));
  output_.finish();
}

}  // namespace Zephly::monitor
