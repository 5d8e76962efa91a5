// SPDX-License-Identifier: MIT
#include <tools/view/client.h>

#include <utility>

namespace Zephly::view {

Client::Client(std::shared_ptr<Server::Shared> shared) : shared_(std::move(shared)) {
  shared_->clients.insert(this);
}

Client::~Client() {
  shared_->clients.erase(this);
  if (shared_->clients.empty() && shared_->closed) std::exchange(shared_->closed, nullptr)();
}

}  // namespace Zephly::view
