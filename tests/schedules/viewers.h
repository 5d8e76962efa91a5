// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The viewers of the page in one run, and clients that break its protocol.
///
/// The rules: the samples that a viewer receives are those of the session, in order, and what is
/// missing between them is what `lost` messages have counted before; a viewer that reads receives
/// them soon; what has waited for one that did not read is within the limit; who reads at the end
/// of the program receives everything, the final state, and a closing frame.

#include <hosts/main_queue/main_queue.h>
#include <simulator/frame.h>
#include <tests/schedules/page_client.h>
#include <tests/schedules/schedule.h>

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace schedules {

/// One of them.
class SimulatedViewer {
 public:
  /// What all viewers of a run know.
  struct Session {
    const std::vector<float>& ecg;  ///< all samples so far
    std::size_t queueLimit;
    bool stalled;  ///< nobody reads
  };

  /// Reads `atATime` bytes in each turn, 0: everything. `before`: ECG samples so far.
  SimulatedViewer(std::size_t atATime, std::uint64_t before);

  void turn(const Session& session);
  void stallEnds();
  /// 0: without a word, 1: with a closing frame, 2: sends nothing more.
  void leave(int how);

  /// `due`: ECG samples that the session has had; empty when the end does not count.
  std::string judge(std::optional<std::uint64_t> due) const;
  std::uint64_t lost() const { return lostMessages_; }

 private:
  void take(const Session& session, const web::ServerFrame& frame);
  void takeText(const std::string& text);
  void takeSamples(const Session& session, const std::string& bytes);
  void fail(const std::string& what);

  struct Curve {
    std::optional<std::uint64_t> next;
    std::uint64_t counted = 0;  ///< lost samples that no gap has shown yet
  };
  // After a stall: what was sent before its end.
  struct Backlog {
    Duration until;
    std::size_t inSocket;  // bytes
    std::size_t samples;   // bytes
  };

  PageClient client_;
  std::size_t atATime_;
  std::uint64_t before_;
  bool left_ = false;
  bool helloReceived_ = false;
  bool final_ = false;
  unsigned closeCode_ = 0;
  std::array<Curve, 4> curves_;
  std::optional<Backlog> backlog_;
  int behindTurns_;  // until it has had to receive what has waited
  std::uint64_t lostMessages_ = 0;
  std::string wrong_;
};

class Viewers {
 public:
  explicit Viewers(const Schedule& schedule) : queueLimit_(schedule.viewerQueue) {}

  /// The session has had this value.
  void value(const Zephly::simulator::Frame& frame);
  void apply(Zephly::main_queue::MainQueue& queue, const Step& step);
  /// Reads what is left after the end of the program, and returns what is wrong; `due`: ECG samples
  /// that viewers must have received, empty when the program has not ended in an orderly way.
  std::string judge(std::optional<std::uint64_t> due);

  std::uint64_t opened() const { return viewers_.size(); }
  std::uint64_t lost() const;

 private:
  struct Rude {
    PageClient client;
    int kind;
    Duration since;
    bool done = false;
  };

  void turn(Zephly::main_queue::MainQueue& queue);
  void turnRude(Rude& rude);

  std::size_t queueLimit_;
  std::vector<float> ecg_;
  std::deque<SimulatedViewer> viewers_;
  std::size_t left_ = 0;
  std::deque<Rude> rude_;
  int stalled_ = 0;
  std::vector<Zephly::main_queue::Timer> timers_;
  Zephly::main_queue::Timer turnTimer_;
  std::string wrong_;
};

}  // namespace schedules
