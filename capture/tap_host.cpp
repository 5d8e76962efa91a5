// SPDX-License-Identifier: MIT
#include <capture/tap_host.h>

#include <capture/tap_central.h>
#include <capture/tap_notes.h>

#include <stdexcept>
#include <utility>

namespace Zephly::capture {

TapHost::TapHost(TapOptions options) : inner_(Host::current()) {
  if (inner_ == nullptr) throw std::logic_error("no host is in use that could be recorded");
  if (!options.wall) options.wall = systemTime;
  notes_ = std::make_shared<TapNotes>(std::move(options));
  Host::use(this);
}

TapHost::~TapHost() {
  Host::leave(this);
  notes_->close();
  notes_->restoreProcessorClock();
}

std::shared_ptr<CBCentralManager> TapHost::createCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
    const std::optional<CBOptions>& options) {
  return TapCentral::create(*inner_, notes_, std::move(delegate), queue, options);
}

void TapHost::end() {
  notes_->note(Ended{});
  notes_->close();
}

std::chrono::nanoseconds systemTime() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::system_clock::now().time_since_epoch());
}

}  // namespace Zephly::capture
