// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Viewers of a live page, each in a separate process, like browsers.
///
///   Audience audience(20);           // before anything else is opened
///   audience.watch(server.port());
///   audience.stop(0);                // one of them is frozen
///   ...
///   audience.resume(0);
///   server.close(...);               // ends them
///   const auto accounts = audience.finish();

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

/// The ECG samples received by one viewer.
struct Account {
  std::uint64_t received = 0;
  std::uint64_t lost = 0;  ///< as reported by the server
};

class Audience {
 public:
  /// Starts the processes; they wait.
  explicit Audience(std::size_t viewers);
  Audience(const Audience&) = delete;
  Audience& operator=(const Audience&) = delete;
  /// Ends the remaining processes.
  ~Audience();

  std::size_t size() const { return viewers_.size(); }
  /// Lets them connect to the page on this machine's port.
  void watch(std::uint16_t port) const;
  /// SIGSTOP and SIGCONT.
  void stop(std::size_t viewer) const;
  void resume(std::size_t viewer) const;
  /// Waits until all have received the end of the stream.
  std::vector<Account> finish();

 private:
  struct Viewer {
    pid_t process;
    int port;     // a pipe to it
    int account;  // a pipe from it
  };

  std::vector<Viewer> viewers_;
};

}  // namespace bench
