// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Draws a session for the terminal.
///
///   Canvas canvas(80, 24);
///   drawSession(canvas, model, options);

#include <tools/monitor/canvas.h>
#include <tools/watch/session_model.h>
#include <zephly/protocol/strap_time.h>

#include <cstddef>
#include <string>

namespace Zephly::monitor {

/// The smallest terminal that a session fits on.
inline constexpr std::size_t smallestWidth = 60;
inline constexpr std::size_t smallestHeight = 20;

struct ViewOptions {
  StrapTime now{};                  ///< since the session began
  std::string title = {};           ///< of the source
  std::string pace = {};            ///< of the source; may be empty
  bool unicode = true;              ///< false: plain ASCII
  std::string command = "monitor";  ///< the subcommand that shows it
};

/// Draws on an empty canvas; if it is too small, only a message.
void drawSession(Canvas& canvas, const watch::SessionModel& model, const ViewOptions& options);

/// The same in one line, for terminals that can only print: "0:12  connected  ...".
std::string statusLine(const watch::SessionModel& model, StrapTime now);

}  // namespace Zephly::monitor
