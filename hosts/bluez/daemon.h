#pragma once
/// @file
/// The service bluetoothd as it comes and goes: the bus, the owner of its name, its objects.
///
/// Opens the bus and opens it again when it was lost, finds the service and finds it again when it
/// was restarted, and tells one listener what happens there, in order.

#include <hosts/bluez/bus.h>
#include <hosts/bluez/object_tree.h>
#include <hosts/bluez/retry.h>
#include <hosts/bluez/timing.h>
#include <hosts/main_queue/main_queue.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace Zephly::bluez {

/// Is told, always by a turn of the queue; may destroy the daemon.
class DaemonListener {
 public:
  virtual ~DaemonListener() = default;

  /// state() is another one. When the service has gone, this comes before the end of its objects.
  virtual void daemonChanged() = 0;
  virtual void objectChanged(const ObjectChange& change) = 0;
  /// One advertisement of a device, or another name of it.
  virtual void deviceHeard(const std::string& path) = 0;
  /// One value of a characteristic.
  virtual void valueArrived(const std::string& path, const Bytes& value) = 0;
  /// Why a device is about to be, or has just been, disconnected. Newer versions of BlueZ tell it.
  virtual void disconnectionExplained(const std::string& path, const std::string& reason) = 0;

 protected:
  DaemonListener() = default;
  DaemonListener(const DaemonListener&) = default;
  DaemonListener& operator=(const DaemonListener&) = default;
};

/// Follows the service for as long as it lives.
class Daemon {
 public:
  enum class State {
    unknown,       ///< being asked for
    noBus,         ///< there is no message bus
    noService,     ///< nobody has the name org.bluez, or it does not answer
    noPermission,  ///< the bus does not let this program speak to it
    ready,         ///< the objects are known
  };

  /// Begins at once to look for the service; the listener is told from the queue's next turn on.
  Daemon(main_queue::MainQueue& queue, std::string busAddress, const Timing& timing,
         DaemonListener& listener);
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  State state() const { return state_; }
  bool ready() const { return state_ == State::ready; }
  /// What the system said when the state became what it is; empty when all is well.
  const std::string& reason() const { return reason_; }
  const ObjectTree& tree() const { return tree_; }

  /// Calls a method of the service. The reply is a failure while the service is not ready.
  void call(const std::string& path, const std::string& interface, const std::string& method,
            const Arguments& arguments, std::chrono::milliseconds timeout,
            Bus::ReplyHandler handler);
  /// The same, of whose outcome nobody wants to hear.
  void tell(const std::string& path, const std::string& interface, const std::string& method);

  /// Waits until the bus has taken over what was told, at most a moment. For the end.
  void settle();

  /// Reads all objects anew, then calls `handler` with whether that worked.
  void refresh(std::function<void(bool)> handler);
  /// Reads one interface of an object anew, then calls `handler` with whether that worked.
  void refresh(const std::string& path, const std::string& interface,
               std::function<void(bool)> handler);

 private:
  void openBus();
  void busLost();
  void askForOwner();
  void startService();
  void ownerIs(const std::string& owner);
  void ownerGone();
  void load();
  void become(State state, const std::string& message);
  void take(const Signal& signal);
  void takeProperties(const Signal& signal);
  void tellChanges(const ObjectChanges& changes);
  void refreshSoon();

  main_queue::MainQueue& queue_;
  std::string busAddress_;
  Timing timing_;
  DaemonListener& listener_;
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  State state_ = State::unknown;
  std::string reason_;
  ObjectTree tree_;
  std::string owner_;  ///< unique name of the service's connection; empty when there is none
  Retry retry_;
  Retry refreshRetry_;
  std::unique_ptr<Bus> bus_;
  Bus::Subscription signals_;
  Bus::Subscription owners_;
};

}  // namespace Zephly::bluez
