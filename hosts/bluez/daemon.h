// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The service bluetoothd: the bus, the owner of its name, its objects.
///
/// Opens the bus, reopens it when it is lost, finds the service and finds it again when it is
/// restarted, and reports events to one listener, in order.

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

/// Receives the events, always by a turn of the queue; may destroy the daemon.
class DaemonListener {
 public:
  virtual ~DaemonListener() = default;

  /// state() has changed. When the service has stopped, this call precedes those for the end of its
  /// objects.
  virtual void daemonChanged() = 0;
  virtual void objectChanged(const ObjectChange& change) = 0;
  /// A device has advertised, or has changed its name.
  virtual void deviceAdvertised(const std::string& path) = 0;
  /// One value of a characteristic.
  virtual void valueArrived(const std::string& path, const Bytes& value) = 0;
  /// Why a device is about to be, or has just been, disconnected; newer versions of BlueZ only.
  virtual void disconnectionExplained(const std::string& path, const std::string& reason) = 0;

 protected:
  DaemonListener() = default;
  DaemonListener(const DaemonListener&) = default;
  DaemonListener& operator=(const DaemonListener&) = default;
};

/// Follows the service.
class Daemon {
 public:
  enum class State {
    unknown,       ///< before the first reply
    noBus,         ///< there is no message bus
    silentBus,     ///< the bus accepts connections and does not answer
    noService,     ///< the name org.bluez has no owner, or the owner does not answer
    noPermission,  ///< the bus does not let this program call the service
    ready,         ///< the objects are known
  };

  /// Starts to look for the service; the listener is called from the next turn of the queue on.
  Daemon(main_queue::MainQueue& queue, std::string busAddress, const Timing& timing,
         DaemonListener& listener);
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  State state() const { return state_; }
  bool ready() const { return state_ == State::ready; }
  /// The system's message with which the state was entered; empty when ready.
  const std::string& reason() const { return reason_; }
  const ObjectTree& tree() const { return tree_; }

  /// Calls a method of the service. The reply is a failure while the service is not ready.
  void call(const std::string& path, const std::string& interface, const std::string& method,
            const Arguments& arguments, std::chrono::milliseconds timeout,
            Bus::ReplyHandler handler);
  /// Calls a method without a reply. Does nothing while there is no service.
  void send(const std::string& path, const std::string& interface, const std::string& method);

  /// Waits until the bus has accepted what was sent, at most Timing::leaveLimit. For the end.
  void settle();

  /// Reads all objects again, then calls `handler` with whether that succeeded.
  void refresh(std::function<void(bool)> handler);
  /// Reads one interface of an object again, then calls `handler` with whether that succeeded.
  void refresh(const std::string& path, const std::string& interface,
               std::function<void(bool)> handler);

 private:
  void openBus();
  void busOpened(std::unique_ptr<Bus> bus, const BusError* error);
  void busLost();
  void askForOwner();
  void startService();
  void ownerChanged(const Signal& signal);
  void ownerAppeared(const std::string& owner);
  void ownerGone();
  void load();
  void setState(State state, const std::string& message);
  void take(const Signal& signal);
  void takeProperties(const Signal& signal);
  void reportChanges(const ObjectChanges& changes);
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
  Bus::Opening opening_;  ///< set while the bus is being opened
  std::unique_ptr<Bus> bus_;
};

}  // namespace Zephly::bluez
