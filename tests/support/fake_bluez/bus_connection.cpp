// SPDX-License-Identifier: MIT
#include <tests/support/fake_bluez/bus_connection.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <utility>

namespace fake_bluez {

using Zephly::main_queue::Interest;

BusConnection::BusConnection(Zephly::main_queue::MainQueue& queue, const std::string& address,
                             Handler handler)
    : handler_(std::move(handler)) {
  check(sd_bus_new(&bus_), "make a connection");
  check(sd_bus_set_address(bus_, address.c_str()), "set the address");
  check(sd_bus_set_bus_client(bus_, 1), "be a client");
  check(sd_bus_negotiate_fds(bus_, 1), "send descriptors");
  check(sd_bus_start(bus_), "connect to the private bus");
  check(sd_bus_add_filter(bus_, nullptr, incoming, this), "add a filter");
  const char* unique = nullptr;
  check(sd_bus_get_unique_name(bus_, &unique), "be greeted");
  watch_ = queue.watch(check(sd_bus_get_fd(bus_), "watch the connection"), Interest::read,
                       [this] { turn(); });
  // Data read during authentication is already in the library, where the watch does not see it.
  first_ = queue.after({}, [this] { turn(); });
}

BusConnection::~BusConnection() { sd_bus_close_unref(bus_); }

bool BusConnection::open() const { return sd_bus_is_open(bus_) > 0; }

std::string BusConnection::name() const {
  const char* unique = nullptr;
  check(sd_bus_get_unique_name(bus_, &unique), "read the unique name");
  return unique;
}

void BusConnection::own(const std::string& wellKnownName) {
  // The bus may not have noticed yet that the previous owner of the name is closed; each call gives
  // it time.
  constexpr int patience = 10'000;
  int result = -EEXIST;
  for (int i = 0; i < patience && result == -EEXIST; ++i) {
    result = sd_bus_request_name(bus_, wellKnownName.c_str(), 0);
  }
  check(result, "own a name");
}

void BusConnection::match(const std::string& rule) {
  const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  check(sd_bus_add_match(bus_, nullptr, rule.c_str(), ignore, nullptr), "add a match");
}

Message BusConnection::signal(const std::string& path, const char* interface, const char* member) {
  sd_bus_message* message = nullptr;
  check(sd_bus_message_new_signal(bus_, &message, path.c_str(), interface, member),
        "make a signal");
  return Message(message);
}

void BusConnection::send(sd_bus_message& message) {
  if (!open()) return;
  if (sd_bus_send(bus_, &message, nullptr) < 0) return;
  sd_bus_flush(bus_);
}

void BusConnection::call(const std::string& service, const char* path, const char* interface,
                         const char* method, std::function<void(sd_bus_message&)> answered) {
  sd_bus_message* made = nullptr;
  check(sd_bus_message_new_method_call(bus_, &made, service.c_str(), path, interface, method),
        "make a call");
  const Message message(made);
  auto handler = std::make_unique<std::function<void(sd_bus_message&)>>(std::move(answered));
  sd_bus_slot* slot = nullptr;
  check(sd_bus_call_async(bus_, &slot, made, answer, handler.get(), 0), "call");
  check(sd_bus_slot_set_destroy_callback(
            slot,
            [](void* data) { delete static_cast<std::function<void(sd_bus_message&)>*>(data); }),
        "keep a handler");
  // From here on the bus library owns both until the answer.
  static_cast<void>(handler.release());
  check(sd_bus_slot_set_floating(slot, 1), "leave a call alone");
  sd_bus_slot_unref(slot);
  sd_bus_flush(bus_);
}

int BusConnection::incoming(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  try {
    return static_cast<BusConnection*>(self)->handler_(*message) ? 1 : 0;
  } catch (const std::exception& error) {
    ADD_FAILURE() << "the fake service met " << error.what();
    return 0;
  }
}

int BusConnection::answer(sd_bus_message* message, void* answered, sd_bus_error* /*error*/) {
  const auto& handler = *static_cast<std::function<void(sd_bus_message&)>*>(answered);
  if (handler) handler(*message);
  return 1;
}

void BusConnection::turn() {
  int result = 0;
  do {
    result = sd_bus_process(bus_, nullptr);
  } while (result > 0);
  if (result < 0) watch_.cancel();
  sd_bus_flush(bus_);
}

}  // namespace fake_bluez
