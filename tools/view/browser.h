// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Opens a URL in this desktop's browser.
///
///   Browser browser(queue, complain);
///   browser.open("http://127.0.0.1:8765/");
///
/// Runs xdg-open and does not wait for it.

#include <hosts/main_queue/main_queue.h>

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

namespace Zephly::view {

class Browser {
 public:
  using Complain = std::function<void(std::string_view)>;

  /// `complain` gets one line after a failure.
  Browser(main_queue::MainQueue& queue, Complain complain);

  /// Returns at once. Once.
  void open(const std::string& address);

 private:
  void ended();

  Complain complain_;
  pid_t child_ = -1;
  main_queue::SignalWatch childEnds_;
};

}  // namespace Zephly::view
