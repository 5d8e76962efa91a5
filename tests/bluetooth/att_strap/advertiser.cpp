// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/advertiser.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

namespace Zephly::att_strap {

namespace {

constexpr std::size_t dataLength = 31;
constexpr std::array<std::uint8_t, 1> switchedOff = {0};
constexpr std::array<std::uint8_t, 1> switchedOn = {1};

Bytes advertisingParameters(bool randomAddress) {
  constexpr std::uint16_t interval = 0x00A0;  // 100 ms, in units of 0.625 ms
  constexpr std::uint8_t connectable = 0;
  constexpr std::uint8_t allChannels = 7;
  constexpr std::size_t peerAddress = 7;  // type and address: for directed advertising only
  Bytes parameters;
  append16(parameters, interval);
  append16(parameters, interval);
  parameters.push_back(connectable);
  parameters.push_back(randomAddress ? 1 : 0);
  parameters.insert(parameters.end(), peerAddress, 0);
  parameters.push_back(allChannels);
  parameters.push_back(0);  // any device may connect
  return parameters;
}

}  // namespace

Bytes advertisingData(const std::optional<std::string>& name) {
  constexpr std::uint8_t flags = 0x01;
  constexpr std::uint8_t lowEnergyOnlyAndDiscoverable = 0x06;
  constexpr std::uint8_t completeName = 0x09;
  Bytes data = {2, flags, lowEnergyOnlyAndDiscoverable};
  if (name) {
    const std::size_t length = std::min(name->size(), dataLength - data.size() - 2);
    data.push_back(static_cast<std::uint8_t>(length + 1));
    data.push_back(completeName);
    data.insert(data.end(), name->begin(), name->begin() + static_cast<std::ptrdiff_t>(length));
  }
  data.insert(data.begin(), static_cast<std::uint8_t>(data.size()));
  data.resize(1 + dataLength);
  return data;
}

Advertiser::Advertiser(main_queue::MainQueue& queue, Controller& controller, bool randomAddress,
                       std::optional<std::string> name)
    : queue_(queue), controller_(controller), name_(std::move(name)) {
  controller_.command(hci::leSetAdvertisingParameters, advertisingParameters(randomAddress));
  sendData();
}

void Advertiser::setName(std::optional<std::string> name) {
  name_ = std::move(name);
  sendData();
}

void Advertiser::sendData() {
  controller_.command(hci::leSetAdvertisingData, advertisingData(name_));
}

void Advertiser::start() {
  if (std::exchange(on_, true)) return;
  renew();
}

void Advertiser::stop() {
  timer_.cancel();
  if (std::exchange(on_, false)) controller_.command(hci::leSetAdvertisingEnable, switchedOff);
}

// A refusal means that a connection has just begun, or that advertising was already off.
void Advertiser::renew() {
  using namespace std::chrono_literals;
  controller_.commandTwice(hci::leSetAdvertisingEnable, switchedOff, switchedOn);
  timer_ = queue_.after(100ms, [this] { renew(); });
}

}  // namespace Zephly::att_strap
