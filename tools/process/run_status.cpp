// SPDX-License-Identifier: MIT
#include <tools/process/run_status.h>

#include <capture/text.h>
#include <tools/common/terminal.h>
#include <tools/export/end_signals.h>
#include <tools/export/written_file.h>

#include <unistd.h>

#include <algorithm>

namespace Zephly::processing {

using exporting::sizeText;

std::string statusText(std::size_t ended, std::size_t all, std::uint64_t read,
                       std::uint64_t skipped, std::uint64_t total,
                       std::chrono::duration<double> elapsed) {
  std::string text = std::to_string(ended) + " of " + std::to_string(all) + " captures, " +
                     sizeText(read + skipped) + " of " + sizeText(total);
  const double seconds = elapsed.count();
  constexpr double shortest = 1;  // the rate of less says nothing
  if (read == 0 || seconds < shortest) return text;
  const double rate = static_cast<double>(read) / seconds;
  const auto left = static_cast<double>(total - read - skipped) / rate;
  return text + ", " + sizeText(static_cast<std::uint64_t>(rate)) + "/s, " +
         capture::clockText(std::chrono::seconds(static_cast<std::int64_t>(left))) + " left";
}

RunStatus::RunStatus(const std::vector<WorkItem>& items)
    : items_(items),
      parts_(items.size()),
      errors_(STDERR_FILENO),
      progress_(errors_, tools::isDrawableTerminal(STDERR_FILENO)) {
  for (const WorkItem& item : items) total_ += item.bytes;
}

void RunStatus::progress(std::size_t index, double part) {
  parts_.at(index) = std::clamp(part, 0.0, 1.0);
}

void RunStatus::complaint(std::size_t /*index*/, const std::string& text) {
  progress_.line("zephly process: " + text);
}

void RunStatus::ended(std::size_t index, Outcome outcome) {
  ++counts_.at(static_cast<std::size_t>(outcome));
  parts_.at(index) = outcome == Outcome::wasThere ? 0 : 1;
  if (outcome == Outcome::wasThere) skipped_ += items_.at(index).bytes;
}

bool RunStatus::interrupted() {
  show();
  return exporting::EndSignals::came();
}

void RunStatus::show() {
  constexpr std::chrono::milliseconds between{200};
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + between;
  double read = 0;
  for (std::size_t i = 0; i < items_.size(); ++i) {
    read += parts_[i] * static_cast<double>(items_[i].bytes);
  }
  std::size_t ended = 0;
  for (const std::size_t count : counts_) ended += count;
  const auto bytes = std::min(static_cast<std::uint64_t>(read), total_ - skipped_);
  progress_.status(statusText(ended, items_.size(), bytes, skipped_, total_, now - begin_));
}

}  // namespace Zephly::processing
