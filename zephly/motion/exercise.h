// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The exercises whose repetitions are counted.
///
///   Repetitions counted;
///   ++counted.of(Exercise::jump);

#include <array>
#include <cstddef>
#include <string_view>

namespace Zephly {

enum class Exercise { pushUp, sitUp, jump };

inline constexpr std::array<Exercise, 3> allExercises = {Exercise::pushUp, Exercise::sitUp,
                                                         Exercise::jump};

/// "push-up", "sit-up", "jump".
constexpr std::string_view exerciseName(Exercise exercise) {
  constexpr std::array<std::string_view, allExercises.size()> names = {"push-up", "sit-up", "jump"};
  return names[static_cast<std::size_t>(exercise)];
}

/// Repetitions by kind.
struct Repetitions {
  int pushUps = 0;
  int sitUps = 0;
  int jumps = 0;

  constexpr int& of(Exercise exercise) {
    return exercise == Exercise::pushUp ? pushUps : exercise == Exercise::sitUp ? sitUps : jumps;
  }
  constexpr int of(Exercise exercise) const { return Repetitions(*this).of(exercise); }
  friend bool operator==(const Repetitions&, const Repetitions&) = default;
};

}  // namespace Zephly
