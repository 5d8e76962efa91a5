// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The output of a command that takes long: permanent lines, and on a terminal a status line below
/// them.
///
///   Progress progress(output, drawable);
///   progress.line("0:12 connected");
///   progress.status("0:13  6 512 records");  // each second
///   progress.end();

#include <tools/common/output.h>

#include <string>

namespace Zephly::tools {

class Progress {
 public:
  /// `drawable`: the output is a terminal whose cursor can be moved. Otherwise there is no status.
  Progress(Output& output, bool drawable) : output_(output), drawable_(drawable) {}

  /// A permanent line; `text` has no line end.
  void line(const std::string& text);
  /// Replaces the previous status.
  void status(const std::string& text);
  /// Removes the status.
  void end();

 private:
  void wipe();

  Output& output_;
  bool drawable_;
  bool shown_ = false;
};

}  // namespace Zephly::tools
