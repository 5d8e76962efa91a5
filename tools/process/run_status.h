// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// How far a run over many captures is, on a terminal.
///
///   RunStatus status(items);
///   status.progress(3, 0.5);
///   status.ended(3, Outcome::done);

#include <tools/common/output.h>
#include <tools/common/progress.h>
#include <tools/process/work_list.h>
#include <tools/process/worker_pool.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace Zephly::processing {

/// "3 of 10 captures, 1.2 GB of 4.0 GB, 85.0 MB/s, 0:32 left". `read`: bytes in `elapsed`, without
/// those of results that were there; `skipped`: their bytes.
std::string statusText(std::size_t ended, std::size_t all, std::uint64_t read,
                       std::uint64_t skipped, std::uint64_t total,
                       std::chrono::duration<double> elapsed);

class RunStatus final : public WorkerListener {
 public:
  /// `items` must live as long.
  explicit RunStatus(const std::vector<WorkItem>& items);
  ~RunStatus() override { end(); }

  /// Removes the status from the terminal.
  void end() { progress_.end(); }

  void progress(std::size_t index, double part) override;
  void complaint(std::size_t index, const std::string& text) override;
  void ended(std::size_t index, Outcome outcome) override;
  bool interrupted() override;

  std::size_t count(Outcome outcome) const { return counts_.at(static_cast<std::size_t>(outcome)); }

 private:
  void show();

  const std::vector<WorkItem>& items_;
  std::vector<double> parts_;
  std::array<std::size_t, 4> counts_{};  // by Outcome
  std::uint64_t total_ = 0;
  std::uint64_t skipped_ = 0;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point next_;
  tools::Output errors_;
  tools::Progress progress_;
};

}  // namespace Zephly::processing
