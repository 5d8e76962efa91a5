// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The error of a record that is undamaged but contradicts the records before it.
///
///   throw Contradiction("value of characteristic 7, which is not listed");

#include <stdexcept>

namespace Zephly::replay {

class Contradiction : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Zephly::replay
