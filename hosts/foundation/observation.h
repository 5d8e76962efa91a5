// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Observes the sessions of the process while the object lives, and takes the console from the kit.
///
///   Observation observation(*receiver);          // the console's lines are not formatted
///   Observation observation(*receiver, &file);   // they go to a file

#include <zephly/platform/observer.h>

#include <iostream>
#include <streambuf>

namespace Zephly::hosts {

/// Installs an observer; its end restores the observer and the buffer of before.
class Observation {
 public:
  /// `observer` receives the facts. `console` takes the place of std::cout's buffer, which the
  /// kit's lines follow. Both must outlive this object.
  explicit Observation(Observer& observer, std::streambuf* console = nullptr)
      : observerBefore_(setObserver(&observer)), consoleBefore_(std::cout.rdbuf(console)) {}
  Observation(const Observation&) = delete;
  Observation& operator=(const Observation&) = delete;
  ~Observation() {
    std::cout.rdbuf(consoleBefore_);
    setObserver(observerBefore_);
  }

 private:
  Observer* observerBefore_;
  std::streambuf* consoleBefore_;
};

}  // namespace Zephly::hosts
