// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs pieces of work side by side, each in a process of its own, because a process has room for
/// one session of the kit. What one of them does to its process, also when it is killed, concerns
/// nothing else.
///
///   const bool all = runWorkers(items.size(), jobs, work, listener);
///
/// A worker ends at SIGTERM, which it also gets when this process ends.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace Zephly::processing {

/// How a piece of work has ended.
enum class Outcome {
  done,       ///< with defects or without
  wasThere,   ///< the same, found complete
  defective,  ///< done, but the capture is damaged
  failed
};

/// The way from a worker to the process that has started it.
class WorkerLine {
 public:
  explicit WorkerLine(int descriptor) : descriptor_(descriptor) {}

  /// 0..1, sent from time to time.
  void progress(double part);
  /// One line for the user.
  void complain(std::string text);
  /// The same, without memory.
  void complainOfMemory();

 private:
  void send(char kind, std::string_view text) const;
  void write(std::string_view bytes) const;

  int descriptor_;
  double sent_ = -1;
};

class WorkerListener {
 public:
  WorkerListener() = default;
  WorkerListener(const WorkerListener&) = delete;
  WorkerListener& operator=(const WorkerListener&) = delete;
  virtual ~WorkerListener() = default;

  virtual void progress(std::size_t index, double part) = 0;
  virtual void complaint(std::size_t index, const std::string& text) = 0;
  virtual void ended(std::size_t index, Outcome outcome) = 0;
  /// Asked at least ten times a second: when true, no work is begun and the workers are ended,
  /// within a second.
  virtual bool interrupted() = 0;
};

/// In the worker's process. What it throws ends that process with `failed`.
using Work = std::function<Outcome(std::size_t index, WorkerLine& line)>;

/// Begins the pieces of work 0 to `count` - 1 in this order, `jobs` at the same time. The process
/// must have one thread. False when it was interrupted.
bool runWorkers(std::size_t count, std::size_t jobs, const Work& work, WorkerListener& listener);

}  // namespace Zephly::processing
