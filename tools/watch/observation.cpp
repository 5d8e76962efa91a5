// SPDX-License-Identifier: MIT
#include <tools/watch/observation.h>

#include <iostream>

namespace Zephly::watch {

Observation::Observation(Observer& observer, std::streambuf* console)
    : observerBefore_(setObserver(&observer)), consoleBefore_(std::cout.rdbuf(console)) {}

Observation::~Observation() {
  std::cout.rdbuf(consoleBefore_);
  setObserver(observerBefore_);
}

}  // namespace Zephly::watch
