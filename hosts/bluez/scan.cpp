// SPDX-License-Identifier: MIT
#include <hosts/bluez/scan.h>

#include <hosts/bluez/names.h>

namespace Zephly::bluez {

void Scan::on(const std::string& adapter) {
  if (adapter == adapter_) return;
  if (!adapter_.empty()) daemon_.send(adapter_, adapterInterface, "StopDiscovery");
  lost();
  adapter_ = adapter;
  if (!adapter_.empty()) start();
}

// States: off (adapter_ is empty); starting (not running_, calls under way or retry_ waits);
// running. Every transition increments attempt_, so that replies to calls of an earlier state are
// ignored.

void Scan::lost() {
  ++attempt_;
  retry_.succeeded();
  adapter_.clear();
  running_ = false;
}

void Scan::discoveringIs(bool discovering) {
  if (running_ && !discovering) failed();
}

void Scan::start() {
  const std::uint64_t attempt = ++attempt_;
  running_ = false;
  // DuplicateData: every advertisement of a device is reported, not only the first.
  daemon_.call(adapter_, adapterInterface, "SetDiscoveryFilter",
               {Dictionary{{"Transport", "le"}, {"DuplicateData", true}}}, timing_.callLimit,
               [this, attempt](const Reply& filtered) {
                 if (attempt != attempt_) return;
                 if (!filtered) return failed();
                 daemon_.call(adapter_, adapterInterface, "StartDiscovery", {}, timing_.callLimit,
                              [this, attempt](const Reply& started) {
                                if (attempt != attempt_) return;
                                if (!started && !already(started)) return failed();
                                running_ = true;
                                retry_.succeeded();
                              });
               });
}

// StartDiscovery fails with InProgress both while our scan is running and while an earlier one is
// being stopped. Only in the first case is the adapter discovering.
bool Scan::already(const Reply& reply) const {
  const auto* discovering =
      daemon_.tree().property<bool>(adapter_, adapterInterface, "Discovering");
  return reply.errorName == "org.bluez.Error.InProgress" && discovering != nullptr && *discovering;
}

void Scan::failed() {
  ++attempt_;
  running_ = false;
  retry_.later([this] { start(); });
}

}  // namespace Zephly::bluez
