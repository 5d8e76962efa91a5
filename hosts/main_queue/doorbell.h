// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The descriptor that is readable when the main queue has work, for another event loop: an epoll
/// descriptor over an eventfd (posts), a timerfd (the earliest timer) and the watched
/// descriptors.

#include <hosts/main_queue/file_descriptor.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace Zephly::main_queue {

/// A new epoll descriptor. std::system_error when there is none.
FileDescriptor makeEpoll();
/// Adds `descriptor` to `epoll`, level-triggered, for `events` (EPOLLIN, EPOLLOUT).
/// std::system_error when it cannot be watched.
void addToEpoll(const FileDescriptor& epoll, int descriptor, std::uint32_t events);

/// Rung by any thread, silenced by the queue.
class Doorbell {
 public:
  /// Rung once, so that what was there before is looked at. std::system_error when the system has
  /// no descriptor left.
  Doorbell();

  int descriptor() const { return epoll_.get(); }

  /// Readable until silence(). From any thread.
  void ring();
  /// To be called before the queue looks at its work.
  void silence();
  /// Readable from `deadline` on; empty for never.
  void setDeadline(std::optional<std::chrono::steady_clock::time_point> deadline);
  /// Readable while `descriptor` is, until that is closed.
  void watch(int descriptor);

 private:
  FileDescriptor epoll_;
  FileDescriptor event_;
  FileDescriptor timer_;
  std::atomic<bool> rung_ = false;
  std::optional<std::chrono::steady_clock::time_point> deadline_;
};

}  // namespace Zephly::main_queue
