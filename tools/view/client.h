// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The base of the server's connections, and the state that they share.

#include <tools/view/access.h>
#include <tools/view/server.h>

#include <cstdint>
#include <map>
#include <set>

namespace Zephly::view {

class Connection;
class Viewer;

/// A connection; owned by the handlers of its pending operations.
class Client {
 public:
  /// Counts as connected from now on.
  explicit Client(std::shared_ptr<Server::Shared> shared);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  virtual ~Client();

  /// Ends it when its queued messages have been sent.
  virtual void end() = 0;
  /// Ends it at once.
  virtual void drop() = 0;
  /// The server is being destroyed: ends it at once without a report, and allocates no memory.
  /// Afterwards nothing is left of a WebSocket: with one, Beast would allocate memory when the
  /// queue is destroyed, and end the program where there is none.
  virtual void release() = 0;

 protected:
  Server::Shared& shared() const { return *shared_; }
  const std::shared_ptr<Server::Shared>& sharedPointer() const { return shared_; }

 private:
  std::shared_ptr<Server::Shared> shared_;
};

/// The state shared by the connections.
struct Server::Shared {
  Limits limits;
  std::span<const Asset> assets;
  Access access;
  Greeting greeting;
  Report report;
  std::set<Client*> clients = {};
  std::map<std::uint64_t, Connection*> connections = {};  ///< by age, the oldest first
  std::uint64_t lastConnection = 0;                       ///< number of the latest one
  std::size_t replaced = 0;                               ///< clients that are closing for others
  std::set<Viewer*> viewers = {};
  std::uint64_t lastViewer = 0;  ///< number of the latest one
  bool closing = false;
  std::function<void()> closed = {};  ///< called when the last client is destroyed
};

}  // namespace Zephly::view
