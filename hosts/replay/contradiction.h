#pragma once
/// @file
/// What is wrong with a record although it is whole: it cannot be true after the records before it.
///
///   throw Contradiction("value of characteristic 7, which is not listed");

#include <stdexcept>

namespace Zephly::replay {

class Contradiction : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Zephly::replay
