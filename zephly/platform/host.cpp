// SPDX-License-Identifier: MIT
#include <zephly/platform/host.h>

#include <zephly/platform/fatal_error.h>

#include <string>
#include <utility>

namespace Zephly {

namespace {

Host* hostInUse = nullptr;

}  // namespace

void Host::use(Host* host) { hostInUse = host; }

void Host::leave(const Host* host) {
  if (hostInUse == host) hostInUse = nullptr;
}

Host* Host::current() { return hostInUse; }

std::string_view Host::available() { return ZEPHLY_HOSTS; }

}  // namespace Zephly

std::shared_ptr<CBCentralManager> CBCentralManager::init(
    std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
    const std::optional<CBOptions>& options) {
  Zephly::Host* host = Zephly::Host::current();
  if (host == nullptr) {
    Zephly::fatalError("no host is in use; choose one before creating a session (this build has: " +
                       std::string(Zephly::Host::available()) + ")");
  }
  auto central = host->createCentralManager(std::move(delegate), queue, options);
  if (!central) Zephly::fatalError("the host in use created no central manager");
  return central;
}
