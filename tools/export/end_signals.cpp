// SPDX-License-Identifier: MIT
#include <tools/export/end_signals.h>

namespace Zephly::exporting {

namespace {

volatile std::sig_atomic_t noted = 0;

extern "C" void noteEndSignal(int /*signal*/) { noted = 1; }

}  // namespace

EndSignals::EndSignals() {
  noted = 0;
  struct sigaction action {};
  action.sa_handler = noteEndSignal;
  for (std::size_t i = 0; i < signals.size(); ++i) {
    ::sigaction(signals[i], &action, &before_[i]);
    if (before_[i].sa_handler == SIG_IGN) ::sigaction(signals[i], &before_[i], nullptr);
  }
}

EndSignals::~EndSignals() {
  for (std::size_t i = 0; i < signals.size(); ++i) ::sigaction(signals[i], &before_[i], nullptr);
}

bool EndSignals::came() { return noted != 0; }

}  // namespace Zephly::exporting
