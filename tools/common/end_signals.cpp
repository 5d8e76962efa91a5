// SPDX-License-Identifier: MIT
#include <tools/common/end_signals.h>

#include <csignal>

namespace Zephly::tools {

std::vector<main_queue::SignalWatch> watchEndSignals(main_queue::MainQueue& queue,
                                                     const std::function<void()>& end) {
  std::vector<main_queue::SignalWatch> watches;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present {};
    ::sigaction(signal, nullptr, &present);
    if (signal != SIGTERM && present.sa_handler == SIG_IGN) continue;
    watches.push_back(queue.onSignal({signal}, [end](int /*signal*/) { end(); }));
  }
  return watches;
}

}  // namespace Zephly::tools
