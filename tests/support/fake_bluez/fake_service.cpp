// SPDX-License-Identifier: MIT
#include <tests/support/fake_bluez/fake_service.h>

#include <algorithm>
#include <utility>

namespace fake_bluez {

namespace {

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* objectManagerInterface = "org.freedesktop.DBus.ObjectManager";

std::vector<std::string> texts(sd_bus_message& message, int count) {
  std::vector<std::string> all;
  const char* text = nullptr;
  while (count-- > 0 && sd_bus_message_read_basic(&message, 's', &text) > 0) {
    all.emplace_back(text);
  }
  check(sd_bus_message_rewind(&message, 1), "rewind a message");
  return all;
}

}  // namespace

Answer Answer::refuse(std::string name, std::string text) {
  return {Kind::refuse, std::move(name), std::move(text), {}, {}};
}
Answer Answer::wrong(Writer body) { return {Kind::wrong, {}, {}, std::move(body), {}}; }
Answer Answer::hold() { return {Kind::hold, {}, {}, {}, {}}; }
Answer Answer::delay(std::chrono::milliseconds after) { return {Kind::delay, {}, {}, {}, after}; }
Answer Answer::never() { return {Kind::never, {}, {}, {}, {}}; }

FakeService::FakeService(Zephly::main_queue::MainQueue& queue, std::string address,
                         std::string name)
    : queue_(queue), address_(std::move(address)), name_(std::move(name)) {}

void FakeService::run() {
  connection_ = std::make_unique<BusConnection>(
      queue_, address_, [this](sd_bus_message& message) { return incoming(message); });
  connection_->match("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'");
  connection_->own(name_);
}

void FakeService::kill() {
  connection_.reset();
  objects_.clear();
  heldCalls_.clear();
  heldSignals_.clear();
  delays_.clear();
}

void FakeService::script(const std::string& method, Answer answer, int times,
                         const std::string& path) {
  rules_.push_back({method, path, std::move(answer), times});
}

void FakeService::release() {
  for (const auto& call : std::exchange(heldCalls_, {})) handle(call);
  for (const auto& signal : std::exchange(heldSignals_, {})) {
    ++activity_;
    if (connection_) connection_->send(*signal);
  }
}

int FakeService::calls(const std::string& method, const std::string& path) const {
  return static_cast<int>(std::count_if(log_.begin(), log_.end(), [&](const CallPointer& call) {
    return call->method == method && (path.empty() || call->path == path);
  }));
}

CallPointer FakeService::lastCall(const std::string& method) const {
  const auto found = std::find_if(log_.rbegin(), log_.rend(),
                                  [&](const CallPointer& call) { return call->method == method; });
  return found == log_.rend() ? nullptr : *found;
}

bool FakeService::incoming(sd_bus_message& message) {
  if (sd_bus_message_is_signal(&message, nullptr, "NameOwnerChanged") > 0) {
    const auto owner = texts(message, 3);
    if (owner.size() == 3 && owner[2].empty()) peerLeft(owner[0]);
    return true;
  }
  if (sd_bus_message_is_method_call(&message, nullptr, nullptr) <= 0) return false;
  const auto call = std::make_shared<Call>();
  call->message.reset(sd_bus_message_ref(&message));
  call->sender = sd_bus_message_get_sender(&message);
  call->path = sd_bus_message_get_path(&message);
  const char* interface = sd_bus_message_get_interface(&message);
  call->interface = interface == nullptr ? "" : interface;
  call->method = sd_bus_message_get_member(&message);
  if (call->interface == "org.freedesktop.DBus.Peer") return false;
  call->arguments = textOf(message);
  ++activity_;
  log_.push_back(call);
  answer(call);
  return true;
}

void FakeService::answer(const CallPointer& call) {
  const auto rule = std::find_if(rules_.begin(), rules_.end(), [&](const Rule& candidate) {
    return candidate.method == call->method &&
           (candidate.path.empty() || candidate.path == call->path);
  });
  if (rule == rules_.end()) return handle(call);
  const Answer answer = rule->answer;
  if (rule->times > 0 && --rule->times == 0) rules_.erase(rule);
  switch (answer.kind) {
    case Answer::Kind::normal:
      return handle(call);
    case Answer::Kind::refuse:
      return refuse(call, answer.errorName, answer.errorText);
    case Answer::Kind::wrong:
      call->wrongReply = answer.body;
      return handle(call);
    case Answer::Kind::hold:
      heldCalls_.push_back(call);
      return;
    case Answer::Kind::delay:
      delays_.push_back(queue_.after(answer.after, [this, call] { handle(call); }));
      return;
    case Answer::Kind::never:
      return;
  }
}

void FakeService::handle(const CallPointer& call) {
  if (call->method == "GetManagedObjects") return getManagedObjects(call);
  if (call->interface == propertiesInterface) {
    return call->method == "Set" ? setProperty(call) : getProperties(call);
  }
  if (!exists(call->path, call->interface)) {
    return refuse(call, "org.freedesktop.DBus.Error.UnknownObject",
                  "Method " + call->method + " of " + call->interface + " doesn't exist");
  }
  perform(call);
}

void FakeService::getManagedObjects(const CallPointer& call) {
  reply(call, [this](sd_bus_message& message) {
    check(sd_bus_message_open_container(&message, 'a', "{oa{sa{sv}}}"), "open the objects");
    for (const auto& [path, interfaces] : objects_) {
      check(sd_bus_message_open_container(&message, 'e', "oa{sa{sv}}"), "open an object");
      append(message, ObjectPath{path});
      append(message, shown(path));
      check(sd_bus_message_close_container(&message), "close an object");
    }
    check(sd_bus_message_close_container(&message), "close the objects");
  });
}

void FakeService::getProperties(const CallPointer& call) {
  const auto names = texts(*call->message, call->method == "Get" ? 2 : 1);
  if (names.empty() || !exists(call->path, names[0])) {
    return refuse(call, "org.freedesktop.DBus.Error.UnknownObject", "No such object");
  }
  const Interfaces interfaces = shown(call->path);
  const Properties& all = interfaces.at(names[0]);
  if (call->method == "GetAll") {
    return reply(call, [&](sd_bus_message& message) { append(message, all); });
  }
  const auto found = names.size() < 2 ? all.end() : all.find(names[1]);
  if (found == all.end()) {
    return refuse(call, "org.freedesktop.DBus.Error.InvalidArgs", "No such property");
  }
  reply(call, [&](sd_bus_message& message) { append(message, found->second); });
}

void FakeService::setProperty(const CallPointer& call) {
  refuse(call, "org.freedesktop.DBus.Error.PropertyReadOnly", "Property is not writable");
}

void FakeService::reply(const CallPointer& call, const Writer& body) {
  sd_bus_message* made = nullptr;
  check(sd_bus_message_new_method_return(call->message.get(), &made), "make a reply");
  const Message message(made);
  if (call->wrongReply) {
    call->wrongReply(*made);
  } else if (body) {
    body(*made);
  }
  ++activity_;
  if (connection_) connection_->send(*made);
}

void FakeService::refuse(const CallPointer& call, const std::string& name,
                         const std::string& text) {
  sd_bus_message* made = nullptr;
  check(sd_bus_message_new_method_errorf(call->message.get(), &made, name.c_str(), "%s",
                                         text.c_str()),
        "make an error");
  const Message message(made);
  ++activity_;
  if (connection_) connection_->send(*made);
}

void FakeService::emit(const std::string& path, const char* interface, const char* member,
                       const Writer& body) {
  if (!connection_) return;
  ++activity_;
  const Fate what = fate ? fate(path, member) : Fate::once;
  if (what == Fate::lost) return;
  for (int i = what == Fate::twice ? 2 : 1; i > 0; --i) {
    Message message = connection_->signal(path, interface, member);
    body(*message);
    if (what == Fate::held) {
      heldSignals_.push_back(std::move(message));
    } else {
      connection_->send(*message);
    }
  }
}

void FakeService::emitChanged(const std::string& path, const std::string& interface,
                              Properties changed) {
  if (tamper) tamper(path, interface, changed);
  emit(path, propertiesInterface, "PropertiesChanged", [&](sd_bus_message& message) {
    append(message, interface);
    append(message, changed);
    append(message, std::vector<std::string>());
  });
}

void FakeService::emitAdded(const std::string& path) {
  emit("/", objectManagerInterface, "InterfacesAdded", [&](sd_bus_message& message) {
    append(message, ObjectPath{path});
    append(message, shown(path));
  });
}

void FakeService::emitRemoved(const std::string& path, const std::vector<std::string>& interfaces) {
  emit("/", objectManagerInterface, "InterfacesRemoved", [&](sd_bus_message& message) {
    append(message, ObjectPath{path});
    append(message, interfaces);
  });
}

bool FakeService::exists(const std::string& path, const std::string& interface) const {
  const auto object = objects_.find(path);
  return object != objects_.end() && object->second.contains(interface);
}

Properties& FakeService::properties(const std::string& path, const std::string& interface) {
  return objects_.at(path).at(interface);
}

void FakeService::change(const std::string& path, const std::string& interface,
                         const Properties& changed) {
  if (!exists(path, interface)) return;
  for (const auto& [name, value] : changed) {
    properties(path, interface).insert_or_assign(name, value);
  }
  emitChanged(path, interface, changed);
}

void FakeService::add(const std::string& path, const std::string& interface, Properties all) {
  add(path, {{interface, std::move(all)}});
}

void FakeService::add(const std::string& path, Interfaces interfaces) {
  interfaces[propertiesInterface];
  interfaces["org.freedesktop.DBus.Introspectable"];
  objects_[path] = std::move(interfaces);
  emitAdded(path);
}

void FakeService::remove(const std::string& path) {
  std::vector<std::string> doomed;
  for (const auto& [candidate, interfaces] : objects_) {
    if (candidate == path || candidate.rfind(path + "/", 0) == 0) doomed.push_back(candidate);
  }
  std::reverse(doomed.begin(), doomed.end());
  for (const std::string& victim : doomed) {
    std::vector<std::string> names;
    for (const auto& [name, properties] : objects_.at(victim)) names.push_back(name);
    objects_.erase(victim);
    emitRemoved(victim, names);
  }
}

Interfaces FakeService::shown(const std::string& path) const {
  Interfaces interfaces = objects_.at(path);
  if (tamper) {
    for (auto& [name, all] : interfaces) tamper(path, name, all);
  }
  return interfaces;
}

}  // namespace fake_bluez
