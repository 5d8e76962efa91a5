// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/att_strap.h>

#include <algorithm>
#include <utility>

namespace Zephly::att_strap {

namespace {

using namespace std::chrono_literals;

// In the usual notation: most significant byte first.
std::string addressText(BytesView address) {
  std::string text;
  for (std::size_t i = address.size(); i > 0; --i) {
    text += (text.empty() ? "" : ":") + toHex(address.subspan(i - 1, 1));
  }
  return text;
}

std::string hexByte(std::uint8_t byte) { return toHex(BytesView(&byte, 1)); }

std::size_t lengthOf(Stream stream) {
  switch (stream) {
    case Stream::temperature:
      return 4;
    case Stream::battery:
      return 3;
    case Stream::motion:
      return 20;
    default:
      return 18;
  }
}

}  // namespace

AttStrap::AttStrap(main_queue::MainQueue& queue, EventLog& log, Options options)
    : queue_(queue),
      log_(log),
      options_(std::move(options)),
      profile_(options_.gapName),
      server_(profile_.table, options_.mtu),
      streamer_(queue, options_.seed,
                [this](Stream stream, const Bytes& value) {
                  return link_ != nullptr && server_.isSubscribed(profile_.handleOf(stream)) &&
                         notify(stream, value);
                }),
      advertisedName_(options_.name) {
  server_.onSubscription(
      [this](AttributeHandle value, bool subscribed) { subscriptionChanged(value, subscribed); });
  open();
}

// The controller.

void AttStrap::open() {
  auto socket = openEmulated(options_.socket);
  if (socket.get() < 0) {
    openTimer_ = queue_.after(100ms, [this] { open(); });
    return;
  }
  controller_ = std::make_unique<Controller>(
      queue_, std::move(socket),
      Controller::Handlers{
          [this](std::uint8_t code, BytesView parameters) { handleEvent(code, parameters); },
          [this](std::uint16_t handle, BytesView payload) {
            if (link_) link_->received(handle, payload);
          },
          [this] { controllerGone(); }});
  initialise();
}

// Called from within the controller's code, so the controller is destroyed later, from the queue.
void AttStrap::controllerGone() {
  openTimer_ = queue_.after({}, [this] {
    log_.event("controller gone");
    closeController({});
  });
}

void AttStrap::closeController(std::chrono::milliseconds absence) {
  linkEnds("controller closed");
  advertiser_.reset();
  controller_.reset();
  openTimer_ = queue_.after(absence, [this] { open(); });
}

void AttStrap::initialise() {
  const Bytes allEvents = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x3F};
  const Bytes plainLinkEvents = {0x1F, 0, 0, 0, 0, 0, 0, 0};
  controller_->command(hci::reset, {});
  controller_->command(hci::setEventMask, allEvents);
  controller_->command(hci::leSetEventMask, plainLinkEvents);
  // Used when there are no separate buffers for low energy.
  controller_->command(hci::readBufferSize, {}, [this](BytesView reply) {
    if (reply.size() >= 8) buffers_ = {number16(reply, 1), number16(reply, 4)};
  });
  controller_->command(hci::leReadBufferSize, {}, [this](BytesView reply) {
    if (reply.size() >= 4 && number16(reply, 1) != 0 && reply[3] != 0) {
      buffers_ = {number16(reply, 1), reply[3]};
    }
  });
  if (options_.address) controller_->command(hci::leSetRandomAddress, *options_.address);
  controller_->command(hci::readAddress, {}, [this](BytesView reply) {
    ready(options_.address ? BytesView(*options_.address) : reply.subspan(1));
  });
}

void AttStrap::ready(BytesView address) {
  buffers_.packetSize = std::max<std::size_t>(buffers_.packetSize, 27);
  buffers_.packets = std::max<std::size_t>(buffers_.packets, 1);
  advertiser_ = std::make_unique<Advertiser>(queue_, *controller_, options_.address.has_value(),
                                             advertisedName_);
  updateAdvertising();
  log_.event("ready " + addressText(address) + ", " + std::to_string(buffers_.packets) +
             " packets of " + std::to_string(buffers_.packetSize) + " bytes");
}

void AttStrap::handleEvent(std::uint8_t code, BytesView parameters) {
  if (code == hci_event::packetsCompleted) {
    for (std::size_t i = 1; link_ && i + 4 <= parameters.size(); i += 4) {
      link_->packetsCompleted(number16(parameters, i + 2));
    }
  } else if (code == hci_event::disconnected && parameters.size() >= 4) {
    linkEnds(hexByte(parameters[3]));
    updateAdvertising();
  } else if (code == hci_event::le && parameters.size() >= 19 &&
             parameters[0] == hci_event::leConnected && parameters[1] == 0) {
    // Subevent, status, handle, role, type and address of the peer, interval, latency, time-out.
    linkBegins(number16(parameters, 2), number16(parameters, 16) * 10ms, parameters.subspan(6, 6));
  } else if (code == hci_event::le && parameters.size() >= 3 &&
             parameters[0] == hci_event::leLongTermKeyRequest) {
    controller_->command(hci::leRefuseLongTermKey, parameters.subspan(1, 2));
  }
}

void AttStrap::updateAdvertising() {
  if (!advertiser_) return;
  if (advertising_ && !away_ && !link_) {
    advertiser_->start();
  } else {
    advertiser_->stop();
  }
}

// The link.

void AttStrap::linkBegins(std::uint16_t handle, std::chrono::milliseconds timeout, BytesView peer) {
  linkEnds("replaced");
  linkTimeout_ = timeout;
  framesSent_ = framesDropped_ = framesUnsent_ = framesWaiting_ = 0;
  link_ = std::make_unique<Link>(
      handle, buffers_,
      Link::Handlers{
          [this](std::uint16_t handleAndFlags, BytesView payload) {
            controller_->sendData(handleAndFlags, payload);
          },
          [this](std::uint16_t channel, BytesView message) { handleMessage(channel, message); }});
  updateAdvertising();
  log_.event("connected " + addressText(peer) + ", time-out " + std::to_string(timeout.count()) +
             " ms");
  anyReceived_ = false;
  faults_.linkBegins();
}

void AttStrap::linkEnds(const std::string& why) {
  if (!link_) return;
  framesUnsent_ += framesWaiting_;
  lossTimer_.cancel();
  link_.reset();
  server_.clientGone();
  faults_.linkEnds();
  log_.event("disconnected " + why);
  logCounts();
}

void AttStrap::logCounts() {
  log_.event("counts sent=" + std::to_string(framesSent_) + " dropped=" +
             std::to_string(framesDropped_) + " unsent=" + std::to_string(framesUnsent_));
}

void AttStrap::disconnect(std::uint8_t why) {
  if (!link_ || !controller_) return;
  Bytes parameters;
  append16(parameters, link_->handle());
  parameters.push_back(why);
  controller_->command(hci::disconnect, parameters);
}

void AttStrap::vanish(std::chrono::seconds absence) {
  away_ = true;
  updateAdvertising();
  if (link_) {
    framesUnsent_ += std::exchange(framesWaiting_, 0);
    link_->mute();
    // The emulator has no link time-out; both ends report this disconnection as one.
    lossTimer_ = queue_.after(linkTimeout_, [this] { disconnect(reason::timeout); });
  }
  returnTimer_ = queue_.after(absence, [this] {
    away_ = false;
    updateAdvertising();
  });
}

void AttStrap::unplug(std::chrono::seconds absence) { closeController(absence); }

void AttStrap::setAdvertising(bool on) {
  advertising_ = on;
  updateAdvertising();
}

void AttStrap::setAdvertisedName(std::optional<std::string> name) {
  advertisedName_ = std::move(name);
  if (advertiser_) advertiser_->setName(advertisedName_);
}

void AttStrap::setGapName(const std::string& name) {
  server_.table().setValue(profile_.gapName, Bytes(name.begin(), name.end()));
}

// What goes over the link.

void AttStrap::handleMessage(std::uint16_t channel, BytesView message) {
  if (message.empty()) return;
  if (!std::exchange(anyReceived_, true) &&
      faults_.reactionTo(Step::connection) == FaultScript::Reaction::drop) {
    // Nothing is answered, but the link is kept for 50 ms: Linux 6.1.192 crashes when a link ends
    // within milliseconds of its beginning.
    link_->mute();
    lossTimer_ = queue_.after(50ms, [this] { disconnect(reason::remoteUser); });
    return;
  }
  if (channel == channel::attributes) return handleAttributes(message);
  if (channel == channel::signalling && message.size() >= 2) {
    // Requests for channels and for other connection parameters: "not understood".
    constexpr std::array<std::uint8_t, 3> requests = {0x12, 0x14, 0x17};
    if (std::find(requests.begin(), requests.end(), message[0]) == requests.end()) return;
    link_->send(channel, Bytes{0x01, message[1], 2, 0, 0, 0});
  } else if (channel == channel::security && message[0] == 0x01) {
    // Pairing requests: "not supported".
    link_->send(channel, Bytes{0x05, 0x05});
  }
}

void AttStrap::handleAttributes(BytesView pdu) {
  switch (faults_.reactionTo(stepOf(pdu))) {
    case FaultScript::Reaction::drop:
      return disconnect(reason::remoteUser);
    case FaultScript::Reaction::ignore:
      return log_.event("unanswered " + toHex(pdu));
    case FaultScript::Reaction::answer:
      break;
  }
  if (const auto answer = server_.answer(pdu)) {
    if (!link_->send(channel::attributes, *answer)) log_.event("answer lost");
  }
}

// bluetoothd subscribes to the battery level without being asked: faults ignore that subscription.
Step AttStrap::stepOf(BytesView pdu) const {
  const Step step = server_.stepOf(pdu);
  if (step != Step::subscription) return step;
  const auto value = static_cast<AttributeHandle>(number16(pdu, 1) - 1U);
  return profile_.streamOf(value) ? step : Step::other;
}

void AttStrap::subscriptionChanged(AttributeHandle value, bool subscribed) {
  const auto stream = profile_.streamOf(value);
  if (!stream) return;
  if (subscribed && early_) {
    for (int i = 0; i < 5; ++i) notify(*stream, Bytes(lengthOf(*stream), ++earlyNumber_));
  }
  log_.event(std::string(subscribed ? "subscribed " : "unsubscribed ") +
             std::string(streamInfo(*stream).name));
}

bool AttStrap::notify(Stream stream, const Bytes& value) {
  if (away_) return false;
  ++framesWaiting_;
  const bool queued = link_->send(
      channel::attributes, AttServer::notification(profile_.handleOf(stream), value),
      [this, line = "sent " + std::string(streamInfo(stream).name) + ' ' + toHex(value)] {
        --framesWaiting_;
        ++framesSent_;
        log_.frame(line);
      });
  if (queued) return true;
  --framesWaiting_;
  ++framesDropped_;
  return false;
}

bool AttStrap::notifyRaw(Stream stream, const Bytes& value) {
  return link_ && value.size() <= server_.longestNotification() && notify(stream, value);
}

void AttStrap::refuse(std::optional<Stream> stream, std::uint8_t error) {
  if (stream) {
    server_.refuseSubscription(profile_.handleOf(*stream), error);
  } else {
    server_.refuseNothing();
  }
}

}  // namespace Zephly::att_strap
