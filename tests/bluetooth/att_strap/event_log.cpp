// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/event_log.h>

#include <chrono>
#include <iomanip>
#include <iostream>
#include <stdexcept>

namespace Zephly::att_strap {

using namespace std::chrono_literals;

EventLog::EventLog(main_queue::MainQueue& queue, const std::string& file)
    : queue_(queue), out_(file.empty() ? std::cout : file_) {
  if (file.empty()) return;
  file_.open(file, std::ios::trunc);
  if (!file_) throw std::runtime_error(file + ": cannot be written");
}

void EventLog::event(std::string_view line) {
  write(line);
  out_.flush();
}

void EventLog::frame(std::string_view line) {
  write(line);
  if (!flush_.active()) flush_ = queue_.after(100ms, [this] { out_.flush(); });
}

void EventLog::write(std::string_view line) {
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now().time_since_epoch());
  out_ << now.count() / 1'000'000 << '.' << std::setw(6) << std::setfill('0')
       << now.count() % 1'000'000 << ' ' << line << '\n';
}

}  // namespace Zephly::att_strap
