#pragma once
/// @file
/// A session as a picture: what a person sees on the terminal.
///
///   Canvas canvas(80, 24);
///   drawSession(canvas, model, options);

#include <tools/monitor/canvas.h>
#include <tools/watch/session_model.h>

#include <cstddef>
#include <string>

namespace Zephly::monitor {

/// The smallest terminal that a session fits on.
inline constexpr std::size_t smallestWidth = 60;
inline constexpr std::size_t smallestHeight = 20;

struct ViewOptions {
  simulator::StrapTime now{};       ///< since the session began
  std::string title = {};           ///< what is being watched
  std::string pace = {};            ///< how fast it runs; may be empty
  bool unicode = true;              ///< false: plain ASCII
  std::string command = "monitor";  ///< the subcommand that shows it
};

/// Draws on an empty canvas; on one that is too small, a line that says so.
void drawSession(Canvas& canvas, const watch::SessionModel& model, const ViewOptions& options);

/// The same in one line, for terminals that can only print: "0:12  connected  ...".
std::string statusLine(const watch::SessionModel& model, simulator::StrapTime now);

}  // namespace Zephly::monitor
