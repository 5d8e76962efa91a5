// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Decodes the messages of the live page byte by byte.

#include <tools/view/message.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace Zephly::view {

/// A message of samples.
struct Samples {
  Trace trace{};
  std::uint32_t count = 0;
  std::uint64_t index = 0;
  double seconds = 0;
  std::vector<float> values;
};

/// Decodes a message; a test failure when the bytes are invalid.
Samples decoded(std::string_view bytes);

std::vector<Samples> decodedAll(const std::vector<Message>& messages);

}  // namespace Zephly::view
