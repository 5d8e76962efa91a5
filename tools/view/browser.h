#pragma once
/// @file
/// Shows an address in the browser of whoever sits at this machine.
///
///   Browser browser(queue, complain);
///   browser.open("http://127.0.0.1:8765/");
///
/// The desktop's own xdg-open does it, as a process that is not waited for.

#include <hosts/main_queue/main_queue.h>

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

namespace Zephly::view {

class Browser {
 public:
  using Complain = std::function<void(std::string_view)>;

  /// `complain` gets one line when it does not work.
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
