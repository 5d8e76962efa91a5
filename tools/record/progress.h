#pragma once
/// @file
/// What `zephly record` tells while it records: a line for each event of the connection, and on a
/// terminal a line that stays the last one and shows how far it has come.
///
///   Progress progress(output, terminal);
///   progress.line("0:12 connected");
///   progress.status("0:13  6 512 records");  // each second
///   progress.end();

#include <tools/common/output.h>

#include <string>

namespace Zephly::record {

class Progress {
 public:
  /// Where `terminal` is false there is no status.
  Progress(tools::Output& output, bool terminal) : output_(output), terminal_(terminal) {}

  /// A line, without its end, that stays.
  void line(const std::string& text);
  /// Takes the place of the status before.
  void status(const std::string& text);
  /// No status any more.
  void end();

 private:
  void wipe();

  tools::Output& output_;
  bool terminal_;
  bool shown_ = false;
};

}  // namespace Zephly::record
