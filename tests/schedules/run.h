// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs one schedule in this process, which can do so once, and judges what came of it.
///
/// The rules: the program ends within 3.5 s of its --duration or of SIGTERM; every value that
/// reached it is reported or recorded once, in order, with its bits; the link is reported lost once
/// for each loss; exit code 0 means that nothing is missing, another one comes with a sentence;
/// when the disturbances are over, the strap is connected and all five streams arrive. A lack of
/// memory may end the program; then it is reported.

#include <tests/schedules/schedule.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

namespace schedules {

/// What a run counts.
struct Figures {
  std::uint64_t values = 0;  ///< that reached the program
  std::uint64_t links = 0;
  std::uint64_t calls = 0;  ///< to bluetoothd
  std::uint64_t viewers = 0;
  std::uint64_t viewerLosses = 0;  ///< messages that viewers were too slow for
  std::uint64_t failedAllocations = 0;
  Duration time{};                                           ///< simulated
  std::array<std::uint64_t, actionCount> disturbances = {};  ///< that happened, by Action
};

/// Returns what is wrong in one line; empty: nothing. Uses `folder` for files. May end the process
/// with exitOfLimit when the program does not end.
std::string run(const Schedule& schedule, const std::filesystem::path& folder, Figures& figures);

inline constexpr int exitOfLimit = 77;

}  // namespace schedules
