// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The attributes of a strap.

#include <tests/bluetooth/att_strap/attribute_table.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <optional>
#include <string>

namespace Zephly::att_strap {

/// The attribute table and its handles.
struct Profile {
  /// The attributes of every strap. `gapName` is the name in its GAP service, which may differ from
  /// the advertised name.
  explicit Profile(const std::string& gapName);

  AttributeHandle handleOf(Stream stream) const {
    return values.at(static_cast<std::size_t>(stream));
  }
  std::optional<Stream> streamOf(AttributeHandle value) const;

  AttributeTable table;
  AttributeHandle gapName = 0;
  std::array<AttributeHandle, allStreams.size()> values{};  ///< by stream
};

}  // namespace Zephly::att_strap
