#include <hosts/bluez/scan.h>

#include <hosts/bluez/names.h>

namespace Zephly::bluez {

void Scan::on(const std::string& adapter) {
  if (adapter == adapter_) return;
  if (!adapter_.empty()) daemon_.tell(adapter_, adapterInterface, "StopDiscovery");
  lost();
  adapter_ = adapter;
  if (!adapter_.empty()) start();
}

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
  // DuplicateData: a device is reported each time that it is heard.
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

// Our own scan may be going on; but the end of an earlier one may be in progress as well.
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
