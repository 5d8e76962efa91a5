// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The filters of scans and discoveries: a list of identifiers, or none, which everything passes.

#include <zephly/platform/cb_uuid.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace Zephly::hosts {

using UUIDFilter = std::optional<std::vector<CBUUID>>;

/// Of a discovery: whether a service or characteristic `uuid` is to be listed.
inline bool passes(const UUIDFilter& filter, const CBUUID& uuid) {
  return !filter || std::find(filter->begin(), filter->end(), uuid) != filter->end();
}

/// Of a scan: whether a device that advertises these services is to be reported.
inline bool passesAny(const UUIDFilter& filter, const std::vector<CBUUID>& advertised) {
  return !filter || std::any_of(advertised.begin(), advertised.end(),
                                [&](const CBUUID& uuid) { return passes(filter, uuid); });
}

}  // namespace Zephly::hosts
