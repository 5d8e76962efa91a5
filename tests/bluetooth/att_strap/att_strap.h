// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A strap with its own Bluetooth stack. It drives a controller directly, so that a test can make
/// it do things that a Bluetooth service would never do.

#include <hosts/main_queue/main_queue.h>
#include <tests/bluetooth/att_strap/advertiser.h>
#include <tests/bluetooth/att_strap/att_server.h>
#include <tests/bluetooth/att_strap/controller.h>
#include <tests/bluetooth/att_strap/event_log.h>
#include <tests/bluetooth/att_strap/fault_script.h>
#include <tests/bluetooth/att_strap/link.h>
#include <tests/bluetooth/att_strap/profile.h>
#include <tests/bluetooth/att_strap/streamer.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Zephly::att_strap {

struct Options {
  std::string name = "Zephly";                         ///< as advertised
  std::string gapName = "Zephly";                      ///< as read on a link
  std::uint16_t mtu = AttServer::defaultMtu;           ///< the largest one
  std::uint64_t seed = 1;                              ///< of the modelled person
  std::optional<std::array<std::uint8_t, 6>> address;  ///< a random one; last byte first
  std::string socket = "/tmp/bt-server-le";            ///< of the emulator
};

/// One strap on one controller. When the controller is removed, the strap waits for it to return.
class AttStrap {
 public:
  AttStrap(main_queue::MainQueue& queue, EventLog& log, Options options);

  /// Commands of a person or a test.
  void disconnect(std::uint8_t reason);
  /// Out of range: stops sending immediately; the link is lost after its time-out, and the strap is
  /// silent until `absence` has passed.
  void vanish(std::chrono::seconds absence);
  /// Closes the controller without disconnecting, and opens it again after `absence`.
  void unplug(std::chrono::seconds absence);
  void setAdvertising(bool on);
  void setAdvertisedName(std::optional<std::string> name);
  void setGapName(const std::string& name);
  /// One notification now; false without a link or when it is longer than the link allows.
  bool notifyRaw(Stream stream, const Bytes& value);
  /// Sends five values before the response to each subscription.
  void setEarly(bool early) { early_ = early; }
  void refuse(std::optional<Stream> stream, std::uint8_t error);

  FaultScript& faults() { return faults_; }
  Streamer& streamer() { return streamer_; }
  void logCounts();

 private:
  void open();
  void controllerGone();
  void closeController(std::chrono::milliseconds absence);
  void initialise();
  void ready(BytesView address);
  void handleEvent(std::uint8_t code, BytesView parameters);
  void linkBegins(std::uint16_t handle, std::chrono::milliseconds timeout, BytesView peer);
  void linkEnds(const std::string& why);
  void handleMessage(std::uint16_t channel, BytesView message);
  void handleAttributes(BytesView pdu);
  Step stepOf(BytesView pdu) const;
  void subscriptionChanged(AttributeHandle value, bool subscribed);
  bool notify(Stream stream, const Bytes& value);
  void updateAdvertising();

  main_queue::MainQueue& queue_;
  EventLog& log_;
  Options options_;
  Profile profile_;
  AttServer server_;
  FaultScript faults_;
  Streamer streamer_;
  std::optional<std::string> advertisedName_;
  bool advertising_ = true;  ///< requested
  bool away_ = false;        ///< out of range
  bool early_ = false;
  bool anyReceived_ = false;  ///< on this link
  std::uint8_t earlyNumber_ = 0;
  std::uint64_t framesSent_ = 0;
  std::uint64_t framesDropped_ = 0;  ///< the queue was full
  std::uint64_t framesUnsent_ = 0;   ///< still queued when the link ended
  std::uint64_t framesWaiting_ = 0;
  std::chrono::milliseconds linkTimeout_{};
  Buffers buffers_;
  std::unique_ptr<Controller> controller_;
  std::unique_ptr<Advertiser> advertiser_;
  std::unique_ptr<Link> link_;
  main_queue::Timer openTimer_;
  main_queue::Timer lossTimer_;
  main_queue::Timer returnTimer_;
};

}  // namespace Zephly::att_strap
