// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session over a day of strap time on the simulated host, as fast as possible: a strap, losses
/// of its link and of its electrodes, and delegates that are replaced.
///
///   const Outcome outcome = soak::run({.hours = 1, .losses = 42, .electrodeLosses = 8});
///   for (const std::string& wrong : outcome.wrong) std::cerr << wrong << '\n';
///
/// A pacer on the main queue drives the scheduler's clock, as in an application. The run depends on
/// the seed alone.

#include <tests/soak/ledger.h>
#include <tests/soak/logged_strap.h>
#include <tests/soak/process_state.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace soak {

struct Options {
  double hours = 24;  ///< of strap time
  int losses = 1000;  ///< of the link
  int electrodeLosses = 200;
  std::uint64_t seed = 1;
  Fault fault = Fault::none;
};

/// The permitted change of the process's resources from the end of the warm-up to the end of the
/// run.
struct Tolerance {
  static constexpr std::size_t blocks = 8;
  static constexpr std::size_t heapBytes = std::size_t{16} * 1024;
  static constexpr std::size_t residentBytes = std::size_t{1024} * 1024;
};

struct Outcome {
  std::array<Account, Zephly::allStreams.size()> streams{};
  std::uint64_t framesSent = 0;
  std::uint64_t framesUnsubscribed = 0;  ///< without a subscriber
  Account repetitions;
  Account leadoffChanges;
  Account linkLosses;
  Account beats;                    ///< while link and contact held, see VitalsCheck
  std::uint64_t breaths = 0;        ///< reported
  std::uint64_t vitalsSeconds = 0;  ///< reported
  std::uint64_t contactsLost = 0;
  std::uint64_t connections = 0;
  std::uint64_t connectsReported = 0;
  std::uint64_t delegates = 0;
  std::uint64_t trainers = 0;
  ProcessState start;  ///< at the first connection
  ProcessState warm;   ///< after the warm-up: an hour, or a quarter of the run if that is less
  ProcessState end;
  double strapSeconds = 0;
  double wallSeconds = 0;
  std::vector<std::string> wrong;  ///< differences, one line each
};

/// Writes a line on standard error for each strap hour. std::invalid_argument for options that
/// cannot be.
Outcome run(const Options& options);

}  // namespace soak
