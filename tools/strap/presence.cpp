// SPDX-License-Identifier: MIT
#include <tools/strap/presence.h>

#include <hosts/bluez/adapter_choice.h>
#include <hosts/bluez/names.h>

#include <utility>

namespace Zephly::peripheral {

namespace {

constexpr const char* alreadyExists = "org.bluez.Error.AlreadyExists";

}  // namespace

Presence::Presence(main_queue::MainQueue& queue, PresenceOptions options,
                   PresenceListener& listener)
    : queue_(queue),
      options_(std::move(options)),
      listener_(listener),
      choice_(options_.bluetooth.adapter, bluez::canBePeripheral),
      centrals_([this](const std::string& name, bool connected) {
        listener_.onCentral(name, connected);
      }),
      application_{.what = "register the GATT application",
                   .interface = bluez::gattManagerInterface,
                   .enter = "RegisterApplication",
                   .withdraw = "UnregisterApplication",
                   .path = GattApplication::path},
      advertisement_{.what = "advertise",
                     .interface = bluez::advertisingManagerInterface,
                     .enter = "RegisterAdvertisement",
                     .withdraw = "UnregisterAdvertisement",
                     .path = Advertisement::path},
      statusReport_(
          queue, options_.bluetooth.timing.reportDelay,
          [this] { return bluez::missing(daemon_, choice_, adapter_, "peripheral"); },
          [this](const std::string& line) { message(line); }),
      retry_(queue, options_.bluetooth.timing),
      daemon_(queue, options_.bluetooth.busAddress, options_.bluetooth.timing, *this) {}

bool Presence::isSubscribed(Stream stream) const { return gatt_ && gatt_->isSubscribed(stream); }

bool Presence::carry(simulator::Frame frame) {
  if (!gatt_ || away_ || left_) return false;
  gatt_->notify(frame.stream, std::move(frame.bytes));
  return true;
}

// The absence begins when all centrals are disconnected. A loss during a loss starts again: replies
// that belong to an earlier value of `loss_` are ignored.
void Presence::loseLink(std::chrono::nanoseconds absence) {
  if (left_) return;
  away_ = true;
  absence_ = absence;
  disconnecting_ = 0;
  awayTimer_.cancel();
  withdraw(advertisement_);
  ++loss_;
  for (const std::string& path : centrals_.paths()) {
    ++disconnecting_;
    daemon_.call(
        path, bluez::deviceInterface, "Disconnect", {}, options_.bluetooth.timing.callLimit,
        [this, loss = loss_, path](const bluez::Reply& reply) {
          if (loss != loss_) return;
          if (!reply && centrals_.contains(path)) {
            message("cannot disconnect " + bluez::lastPart(path) + ": " + reply.errorText());
          }
          if (--disconnecting_ == 0) beAway();
        });
  }
  if (disconnecting_ == 0) beAway();
}

void Presence::beAway() {
  awayTimer_ = queue_.after(absence_, [this] {
    away_ = false;
    update();
  });
}

// The order: stop advertising before the centrals are disconnected, or they reconnect at once;
// restore the alias and withdraw the application while the bus is still there; settle() gives the
// messages time to leave.
void Presence::leave() {
  if (left_) return;
  left_ = true;
  withdraw(advertisement_);
  for (const std::string& path : centrals_.paths()) {
    daemon_.send(path, bluez::deviceInterface, "Disconnect");
  }
  restoreAlias();
  withdraw(application_);
  if (bus_) bus_->settle(options_.bluetooth.timing.leaveLimit);
  daemon_.settle();
  opening_.reset();
  retry_.cancel();
  awayTimer_.cancel();
  statusReport_.cancel();
}

void Presence::daemonChanged() {
  const bool noBus = daemon_.state() == bluez::Daemon::State::noBus;
  if (noBus && !busSeen_) return listener_.onFatal(daemon_.reason());
  busSeen_ = true;
  update();
}

void Presence::objectChanged(const bluez::ObjectChange& change) {
  if (left_) return;
  if (change.interface == bluez::adapterInterface ||
      change.interface == bluez::gattManagerInterface ||
      change.interface == bluez::advertisingManagerInterface) {
    update();
  }
  centrals_.take(daemon_.tree(), change, advertisement_.state == Registration::State::done);
}

void Presence::update() {
  if (left_) return;
  useAdapter(daemon_.ready() ? choice_.choose(daemon_.tree()) : std::string());
  setReady(!adapter_.empty() && bluez::isPowered(daemon_.tree(), adapter_));
  statusReport_.update(ready_);
  proceed();
}

void Presence::useAdapter(const std::string& adapter) {
  if (adapter == adapter_) return;
  if (!adapter_.empty()) {
    if (!daemon_.ready()) {
      message("bluetoothd has gone");
    } else if (daemon_.tree().properties(adapter_, bluez::adapterInterface) == nullptr) {
      message("adapter " + adapterName() + " has gone");
    }
    withdraw(advertisement_);
    restoreAlias();
    withdraw(application_);
  }
  adapter_ = adapter;
  ready_ = false;
  retry_.succeeded();
  centrals_.setAdapter(daemon_.tree(), adapter_);
  if (adapter_.empty()) return;
  const std::string address = bluez::addressOf(daemon_.tree(), adapter_);
  message("adapter " + adapterName() + (address.empty() ? "" : " (" + address + ")"));
}

void Presence::setReady(bool ready) {
  if (ready == ready_) return;
  ready_ = ready;
  retry_.succeeded();
  if (ready_) return;
  // bluetoothd keeps the application while an adapter is off, but drops the advertisement.
  withdraw(advertisement_);
  if (!adapter_.empty()) message("adapter " + adapterName() + " was switched off");
}

// Starts the next registration that is possible now; its reply calls this again. Called after every
// change of bluetoothd, the adapter, the absence and the retry timer.
void Presence::proceed() {
  using enum Registration::State;
  if (left_ || !ready_ || retry_.waiting()) return;
  if (!bus_) return openBus();
  if (options_.setAlias && !aliasBefore_) setAlias();
  if (application_.state == none) {
    enter(application_);
  } else if (application_.state == done && advertisement_.state == none && !away_) {
    enter(advertisement_);
  }
}

void Presence::openBus() {
  if (opening_) return;
  opening_ =
      bluez::Bus::open(queue_,
                       {.address = options_.bluetooth.busAddress,
                        .rules = {},
                        .limit = options_.bluetooth.timing.busLimit},
                       [this](std::unique_ptr<bluez::Bus> bus, const bluez::BusError* error) {
                         opening_.reset();
                         busOpened(std::move(bus), error);
                       });
}

void Presence::busOpened(std::unique_ptr<bluez::Bus> bus, const bluez::BusError* error) {
  if (error != nullptr) return failed("open the bus", error->what());
  bus_ = std::move(bus);
  bus_->onLost([this] { busLost(); });
  try {
    gatt_ = std::make_unique<GattApplication>(
        queue_, *bus_,
        [this](Stream stream, bool subscribed) { listener_.onSubscription(stream, subscribed); });
    advert_ = std::make_unique<Advertisement>(queue_, *bus_, options_.name, [this] {
      if (left_ || advertisement_.state != Registration::State::done) return;
      ++advertisement_.attempt;
      advertisement_.state = Registration::State::none;
      failed("continue advertising", "bluetoothd has ended it");
    });
  } catch (const bluez::BusError& refusal) {
    busLost();
    return failed("open the bus", refusal.what());
  }
  proceed();
}

// The registrations end with the connection. The bus is destroyed last and after the members are
// empty: destroying it may call back.
void Presence::busLost() {
  for (Registration* registration : {&advertisement_, &application_}) {
    ++registration->attempt;
    registration->state = Registration::State::none;
  }
  const std::unique_ptr<GattApplication> gatt = std::exchange(gatt_, nullptr);
  advert_.reset();
  const std::unique_ptr<bluez::Bus> lost = std::exchange(bus_, nullptr);
  if (gatt) gatt->unsubscribeAll();
  if (!left_ && !retry_.waiting()) retry_.later([this] { update(); });
}

void Presence::enter(Registration& registration) {
  registration.state = Registration::State::asked;
  const std::uint64_t attempt = ++registration.attempt;
  bus_->call({bluez::bluezService, adapter_, registration.interface, registration.enter},
             {bluez::ObjectPath{registration.path}, bluez::Dictionary()},
             options_.bluetooth.timing.callLimit,
             [this, &registration, attempt](const bluez::Reply& reply) {
               if (attempt != registration.attempt) return;
               if (reply) return entered(registration);
               registration.state = Registration::State::none;
               if (reply.errorName == alreadyExists) {
                 // Left over from an earlier connection: its state is unknown, so start again.
                 callWithoutReply(adapter_, registration.interface, registration.withdraw,
                                  {bluez::ObjectPath{registration.path}});
               }
               failed(registration.what, reply.errorText());
             });
}

void Presence::entered(Registration& registration) {
  registration.state = Registration::State::done;
  if (&registration == &application_) {
    message("registered on " + adapterName());
  } else {
    retry_.succeeded();
    failure_.clear();
    message("advertising as \"" + options_.name + "\" on " + adapterName());
  }
  proceed();
}

// A reply that is still to come belongs to an earlier attempt and is ignored.
void Presence::withdraw(Registration& registration) {
  if (std::exchange(registration.state, Registration::State::none) == Registration::State::none) {
    return;
  }
  ++registration.attempt;
  callWithoutReply(adapter_, registration.interface, registration.withdraw,
                   {bluez::ObjectPath{registration.path}});
  if (&registration == &application_ && gatt_) gatt_->unsubscribeAll();
}

// Reports a failure once, however often it repeats, and tries again later.
void Presence::failed(const std::string& what, const std::string& reason) {
  const std::string line =
      "cannot " + what + (ready_ ? " on " + adapterName() : "") + ": " + reason + "; trying again";
  if (std::exchange(failure_, line) != line) message(line);
  retry_.later([this] { update(); });
}

void Presence::setAlias() {
  const auto* alias =
      daemon_.tree().property<std::string>(adapter_, bluez::adapterInterface, "Alias");
  aliasBefore_ = alias == nullptr ? std::string() : *alias;
  daemon_.call(adapter_, bluez::propertiesInterface, "Set",
               {bluez::adapterInterface, "Alias", bluez::variantOf(options_.name)},
               options_.bluetooth.timing.callLimit, [this](const bluez::Reply& reply) {
                 if (!reply) message("cannot set the adapter's alias: " + reply.errorText());
               });
}

void Presence::restoreAlias() {
  if (!aliasBefore_) return;
  callWithoutReply(adapter_, bluez::propertiesInterface, "Set",
                   {bluez::adapterInterface, "Alias", bluez::variantOf(*aliasBefore_)});
  aliasBefore_.reset();
}

// Only while bluetoothd runs: a call would make the bus start it.
void Presence::callWithoutReply(const std::string& path, const char* interface, const char* method,
                                const bluez::Arguments& arguments) {
  if (!bus_ || daemon_.tree().properties(path, bluez::adapterInterface) == nullptr) return;
  bus_->send({bluez::bluezService, path, interface, method}, arguments);
}

std::string Presence::adapterName() const { return bluez::lastPart(adapter_); }

}  // namespace Zephly::peripheral
