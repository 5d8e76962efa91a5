// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A byte buffer of its own bytes: what every host hands to the kit as the value of a
/// characteristic.
///
///   std::shared_ptr<const NSData> value = Zephly::hosts::Data::of({0x01, 0x02});

#include <zephly/platform/ns_data.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace Zephly::hosts {

/// Owns its bytes; immutable.
class Data final : public NSData {
 public:
  /// Takes `bytes`, any number of them.
  explicit Data(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

  /// The same behind the pointer that a characteristic returns.
  static std::shared_ptr<const Data> of(std::vector<std::uint8_t> bytes) {
    return std::make_shared<const Data>(std::move(bytes));
  }

  std::size_t length() const override { return bytes_.size(); }

  void getBytes(void* buffer, std::size_t length) const override {
    const std::size_t count = std::min(length, bytes_.size());
    // An empty vector may have no storage at all, which memcpy does not take.
    if (count > 0) std::memcpy(buffer, bytes_.data(), count);
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace Zephly::hosts
