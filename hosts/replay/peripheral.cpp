// SPDX-License-Identifier: MIT
#include <hosts/replay/peripheral.h>

#include <hosts/foundation/one_line.h>
#include <hosts/replay/contradiction.h>

#include <set>
#include <string_view>
#include <utility>

namespace Zephly::replay {

namespace {

using capture::Listed;
using capture::ObjectId;

std::string named(std::string_view kind, ObjectId id) {
  return std::string(kind) + " " + std::to_string(id);
}

// The kit identifies objects by their address, so a list must not hold one twice.
void checkOnce(std::string_view kind, const std::vector<Listed>& listed) {
  std::set<ObjectId> seen;
  for (const Listed& entry : listed) {
    if (seen.insert(entry.id).second) continue;
    throw Contradiction(named(kind, entry.id) + " is listed twice in one list");
  }
}

void checkSame(std::string_view kind, ObjectId id, bool same) {
  if (same) return;
  throw Contradiction(named(kind, id) + " differs from its first listing");
}

}  // namespace

CBUUID recordedUUID(const std::string& text) {
  const auto uuid = CBUUID::parse(text);
  if (!uuid) throw Contradiction("an identifier that is not a Bluetooth UUID");
  return *uuid;
}

// The filters are ignored: the answers were recorded with those of the kit, which has none.

void Peripheral::discoverServices(const std::optional<std::vector<CBUUID>>& /*serviceUUIDs*/) {
  if (connection_) connection_->servicesRequested = true;
}

std::optional<std::vector<std::shared_ptr<CBService>>> Peripheral::services() const {
  if (!connection_) return std::nullopt;
  return connection_->discovered;
}

void Peripheral::discoverCharacteristics(
    const std::optional<std::vector<CBUUID>>& /*characteristicUUIDs*/,
    const std::shared_ptr<CBService>& service) {
  const auto own = std::dynamic_pointer_cast<Service>(service);
  if (connection_ && own) own->request();
}

void Peripheral::setNotifyValue(bool enabled,
                                const std::shared_ptr<CBCharacteristic>& characteristic) {
  const auto own = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (connection_ && own) own->request(enabled);
}

std::string Peripheral::text() const { return named("peripheral", id_); }

// The states: idle, requested, connected. connect(), failToConnect() and disconnect() follow the
// capture and throw when it contradicts itself; request() and the calls above follow the kit and
// never throw.

void Peripheral::request() {
  if (!retired_ && !connection_) requested_ = true;
}

void Peripheral::connect() {
  if (connection_) throw Contradiction(text() + " is connected twice");
  requested_ = false;
  connection_ = Connection();
}

void Peripheral::failToConnect() {
  if (connection_) throw Contradiction(text() + " cannot be connected, but is");
  requested_ = false;
}

void Peripheral::disconnect() {
  requireConnection();
  connection_.reset();
}

void Peripheral::retire() {
  retired_ = true;
  requested_ = false;
  connection_.reset();
}

void Peripheral::listServices(const std::vector<Listed>& listed) {
  Connection& connection = requireConnection();
  checkOnce("service", listed);
  std::vector<std::shared_ptr<CBService>> services;
  services.reserve(listed.size());
  for (const Listed& entry : listed) services.push_back(serviceOf(entry));
  connection.discovered = std::move(services);
}

std::shared_ptr<Service> Peripheral::listCharacteristics(ObjectId service,
                                                         const std::vector<Listed>& listed) {
  Connection& connection = requireConnection();
  const auto found = connection.services.find(service);
  if (found == connection.services.end()) {
    throw Contradiction(named("service", service) + " does not belong to " + text());
  }
  checkOnce("characteristic", listed);
  std::vector<std::shared_ptr<CBCharacteristic>> characteristics;
  characteristics.reserve(listed.size());
  for (const Listed& entry : listed) characteristics.push_back(characteristicOf(service, entry));
  found->second->setCharacteristics(std::move(characteristics));
  return found->second;
}

std::shared_ptr<Characteristic> Peripheral::characteristic(ObjectId id) const {
  if (!connection_) throw Contradiction(text() + " is not connected");
  const auto found = connection_->characteristics.find(id);
  if (found == connection_->characteristics.end()) {
    throw Contradiction(named("characteristic", id) + " does not belong to " + text());
  }
  return found->second.object;
}

Peripheral::Connection& Peripheral::requireConnection() {
  if (!connection_) throw Contradiction(text() + " is not connected");
  return *connection_;
}

// One object for each number within a connection, so that the kit recognises it in a later list.
std::shared_ptr<Service> Peripheral::serviceOf(const Listed& listed) {
  const CBUUID uuid = recordedUUID(listed.UUID);
  auto& known = connection_->services[listed.id];
  if (!known) known = std::make_shared<Service>(uuid);
  checkSame("service", listed.id, known->UUID() == uuid);
  return known;
}

std::shared_ptr<Characteristic> Peripheral::characteristicOf(ObjectId service,
                                                             const Listed& listed) {
  const CBUUID uuid = recordedUUID(listed.UUID);
  const std::string description = hosts::oneLine(listed.description);
  ListedCharacteristic& known = connection_->characteristics[listed.id];
  if (!known.object) known = {service, std::make_shared<Characteristic>(uuid, description)};
  checkSame("characteristic", listed.id,
            known.service == service && known.object->UUID() == uuid &&
                known.object->description() == description);
  return known.object;
}

}  // namespace Zephly::replay
