#pragma once
/// @file
/// One connection to the server, whatever is spoken on it, and what all of them share.

#include <tools/view/access.h>
#include <tools/view/server.h>

#include <set>

namespace Zephly::view {

class Viewer;

/// A connection; lives as long as something is under way on it.
class Client {
 public:
  /// Counts as connected from now on.
  explicit Client(std::shared_ptr<Server::Shared> shared);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  virtual ~Client();

  /// Ends it when what waits for it has been sent.
  virtual void end() = 0;
  /// Ends it at once.
  virtual void drop() = 0;

 protected:
  Server::Shared& shared() const { return *shared_; }
  const std::shared_ptr<Server::Shared>& sharedPointer() const { return shared_; }

 private:
  std::shared_ptr<Server::Shared> shared_;
};

/// What the connections share.
struct Server::Shared {
  Limits limits;
  std::span<const Asset> assets;
  Access access;
  Greeting greeting;
  Report report;
  std::set<Client*> clients = {};
  std::set<Viewer*> viewers = {};
  std::uint64_t lastViewer = 0;  ///< number of the one that came last
  bool closing = false;
  std::function<void()> closed = {};  ///< called when there is no client left
};

}  // namespace Zephly::view
