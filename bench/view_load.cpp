// SPDX-License-Identifier: MIT
// Measures whether viewers of the live page delay the session: a simulated strap at many times real
// time, without viewers and with twenty, one of which is stopped. Measures the delay of every
// callback, and the memory and processor time of the process.
//
//   zephly_view_load [SPEED SECONDS ROUNDS]

#include <hosts/foundation/observation.h>
#include <hosts/main_queue/main_queue.h>
#include <tools/view/message_feed.h>
#include <tools/view/server.h>
#include <tools/watch/receiver.h>
#include <tools/watch/simulated_source.h>
#include <zephly/protocol/streams.h>
#include <zephly/session/zephly.h>
#include <bench/audience.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct Load {
  double speed = 50;
  std::chrono::seconds time{20};
  int rounds = 7;
};

// A histogram of the delays of callbacks in steps of 10 microseconds. All of it is touched in
// advance, so that it does not count as growing memory.
class Lateness {
 public:
  static constexpr std::chrono::microseconds step{10};

  void count(std::chrono::nanoseconds late) {
    const auto index = static_cast<std::size_t>(std::max<std::int64_t>(0, late / step));
    ++counts_[std::min(index, counts_.size() - 1)];
    ++total_;
  }
  std::uint64_t total() const { return total_; }
  // The delay in milliseconds that this part of the callbacks did not exceed.
  double quantile(double part) const {
    const auto rank = static_cast<std::uint64_t>(part * static_cast<double>(total_ - 1));
    std::uint64_t seen = 0;
    std::size_t index = 0;
    while (seen + counts_[index] <= rank) seen += counts_[index++];
    return std::chrono::duration<double, std::milli>(step).count() * static_cast<double>(index + 1);
  }

 private:
  std::vector<std::uint32_t> counts_ = std::vector<std::uint32_t>(500'000, 0);
  std::uint64_t total_ = 0;
};

// The result of one run. Written to a pipe as raw bytes.
struct Figures {
  double median = 0;  // milliseconds late
  double most = 0;    // of 99 in 100 callbacks
  double nearlyAll = 0;
  double worst = 0;
  double callbacksPerSecond = 0;
  double processorTime = 0;           // of the process over that of the clock
  std::array<double, 5> megabytes{};  // in use: at the beginning, and after each quarter
  std::uint64_t samples = 0;          // of the ECG, that the session delivered
  std::uint64_t complete = 0;         // viewers that received all of them
  std::uint64_t lost = 0;             // by all but the stopped one together
  std::uint64_t stoppedReceived = 0;
  std::uint64_t stoppedLost = 0;
};

double megabytesInUse() {
  std::uint64_t all = 0;
  std::uint64_t resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1e6;
}

double processorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// One session with its viewers.
class Run {
 public:
  Run(const Load& load, std::size_t viewers) : load_(load), audience_(viewers) {}

  Figures measure() {
    Zephly::view::ServerOptions options;
    options.port = 0;
    server_ = std::make_unique<Zephly::view::Server>(
        queue_.context(), options, [this] { return feed_.greeting({.now = source_->now()}); },
        [](std::string_view) {});
    source_ = std::make_unique<Zephly::watch::SimulatedSource>(
        queue_, Zephly::watch::SimulatedOptions{.speed = load_.speed}, [] {});
    receiver_ = std::make_shared<Zephly::watch::Receiver>(
        [this] { return source_->now(); },
        [this](const Zephly::watch::Event& event) { take(event); });
    const Zephly::hosts::Observation observation(*receiver_);
    const auto session = Zephly::Zephly::init(receiver_);
    session->startWorkoutDetection(receiver_);
    audience_.watch(server_->port());
    begin();
    queue_.run();
    return figures_;
  }

 private:
  void take(const Zephly::watch::Event& event) {
    if (measuring_) {
      const std::chrono::duration<double, std::nano> due(static_cast<double>(event.time.count()) /
                                                         load_.speed);
      const std::chrono::duration<double, std::nano> now = Clock::now() - started_;
      lateness_.count(std::chrono::nanoseconds(static_cast<std::int64_t>((now - due).count())));
    }
    feed_.take(event);
  }

  void tick() {
    feed_.tick(source_->now());
    ticks_ = queue_.after(Zephly::view::MessageFeed::interval, [this] { tick(); });
  }

  // The session starts when all viewers are connected; the measurement starts when its windows are
  // full.
  void begin() {
    if (server_->viewers() < audience_.size()) {
      steps_ = queue_.after(10ms, [this] { begin(); });
      return;
    }
    started_ = Clock::now();
    source_->start();
    tick();
    const auto windows = std::chrono::duration<double>(40 / load_.speed);
    steps_ = queue_.after(std::chrono::duration_cast<std::chrono::nanoseconds>(windows),
                          [this] { beginMeasuring(); });
  }

  void beginMeasuring() {
    if (audience_.size() > 0) audience_.stop(0);
    measuring_ = true;
    measuringSince_ = Clock::now();
    processorAtFirst_ = processorSeconds();
    nextQuarter(0);
  }

  void nextQuarter(std::size_t quarter) {
    figures_.megabytes[quarter] = megabytesInUse();
    if (quarter + 1 == figures_.megabytes.size()) {
      endMeasuring();
      return;
    }
    steps_ = queue_.after(std::chrono::nanoseconds(load_.time) / 4,
                          [this, quarter] { nextQuarter(quarter + 1); });
  }

  void endMeasuring() {
    measuring_ = false;
    const double seconds = std::chrono::duration<double>(Clock::now() - measuringSince_).count();
    figures_.processorTime = (processorSeconds() - processorAtFirst_) / seconds;
    figures_.callbacksPerSecond = static_cast<double>(lateness_.total()) / seconds;
    figures_.median = lateness_.quantile(0.5);
    figures_.most = lateness_.quantile(0.99);
    figures_.nearlyAll = lateness_.quantile(0.999);
    figures_.worst = lateness_.quantile(1);
    ticks_.cancel();
    source_->finish();
    feed_.end(source_->now());
    figures_.samples = feed_.model().received(Zephly::Stream::ecg);
    if (audience_.size() > 0) audience_.resume(0);
    server_->close([this] { account(); });
  }

  void account() {
    const std::vector<Account> accounts = audience_.finish();
    for (std::size_t i = 0; i < accounts.size(); ++i) {
      if (accounts[i].received == figures_.samples) ++figures_.complete;
      if (i > 0) figures_.lost += accounts[i].lost;
    }
    if (!accounts.empty()) {
      figures_.stoppedReceived = accounts.front().received;
      figures_.stoppedLost = accounts.front().lost;
    }
    queue_.stop();
  }

  Load load_;
  Audience audience_;  // first, so that its processes inherit no other open files
  Zephly::main_queue::MainQueue queue_;
  Zephly::view::MessageFeed feed_{
      [this](const Zephly::view::Message& message) { server_->send(message); }};
  std::unique_ptr<Zephly::view::Server> server_;
  std::unique_ptr<Zephly::watch::SimulatedSource> source_;
  std::shared_ptr<Zephly::watch::Receiver> receiver_;
  Zephly::main_queue::Timer ticks_;
  Zephly::main_queue::Timer steps_;
  Clock::time_point started_;
  Clock::time_point measuringSince_;
  double processorAtFirst_ = 0;
  bool measuring_ = false;
  Lateness lateness_;
  Figures figures_;
};

// In a separate process, so that no run starts with the memory of the previous one.
Figures runApart(const Load& load, std::size_t viewers) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
  const pid_t process = ::fork();
  if (process < 0) throw std::runtime_error("no process");
  if (process == 0) {
    int exitCode = 1;
    try {
      const Figures figures = Run(load, viewers).measure();
      if (::write(ends[1], &figures, sizeof figures) == sizeof figures) exitCode = 0;
    } catch (const std::exception& error) {
      std::cerr << "zephly_view_load: " << error.what() << '\n';
    }
    ::_exit(exitCode);
  }
  ::close(ends[1]);
  Figures figures;
  const ssize_t count = ::read(ends[0], &figures, sizeof figures);
  ::close(ends[0]);
  ::waitpid(process, nullptr, 0);
  if (count != sizeof figures) throw std::runtime_error("a run has reported nothing");
  return figures;
}

using Figure = double Figures::*;

double medianOf(const std::vector<Figures>& runs, Figure figure) {
  std::vector<double> values;
  values.reserve(runs.size());
  for (const Figures& run : runs) values.push_back(run.*figure);
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void printTable(const std::vector<Figures>& alone, const std::vector<Figures>& watched) {
  struct Row {
    const char* name;
    Figure figure;
  };
  constexpr std::array<Row, 6> rows = {Row{"delay, median, ms", &Figures::median},
                                       Row{"99 of 100 callbacks, ms", &Figures::most},
                                       Row{"999 of 1000, ms", &Figures::nearlyAll},
                                       Row{"the worst, ms", &Figures::worst},
                                       Row{"callbacks per second", &Figures::callbacksPerSecond},
                                       Row{"processors busy", &Figures::processorTime}};
  std::cout << "| | no viewer | 20 viewers, one stopped | ratio |\n|---|--:|--:|--:|\n";
  for (const Row& row : rows) {
    const double without = medianOf(alone, row.figure);
    const double with = medianOf(watched, row.figure);
    std::cout << "| " << row.name << " | " << without << " | " << with << " | " << with / without
              << " |\n";
  }
}

void printRuns(const char* name, const std::vector<Figures>& runs) {
  for (const Figures& run : runs) {
    std::cout << "| " << name;
    for (const double megabytes : run.megabytes) std::cout << " | " << megabytes;
    std::cout << " | " << run.worst << " | " << run.samples << " | " << run.complete << " | "
              << run.lost << " | " << run.stoppedReceived << " | " << run.stoppedLost << " |\n";
  }
}

int measure(const Load& load) {
  constexpr std::size_t viewers = 20;
  std::vector<Figures> alone;
  std::vector<Figures> watched;
  for (int round = 0; round < load.rounds; ++round) {
    alone.push_back(runApart(load, 0));
    watched.push_back(runApart(load, viewers));
  }
  std::cout << std::fixed << std::setprecision(2);
  printTable(alone, watched);
  std::cout
      << "\n| run | MB at first | after 1/4 | 1/2 | 3/4 | at the end | worst, ms | ECG samples "
         "| viewers with all | the others lost | the stopped one received | and lost |\n"
         "|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n";
  printRuns("no viewer", alone);
  printRuns("20 viewers", watched);
  return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  bench::Load load;
  if (argc == 4) {
    load.speed = std::strtod(argv[1], nullptr);
    load.time = std::chrono::seconds(std::strtol(argv[2], nullptr, 10));
    load.rounds = static_cast<int>(std::strtol(argv[3], nullptr, 10));
  }
  if ((argc != 1 && argc != 4) || !(load.speed > 0) || load.time.count() < 1 || load.rounds < 1) {
    std::cerr << "usage: zephly_view_load [SPEED SECONDS ROUNDS]\n";
    return 2;
  }
  try {
    return bench::measure(load);
  } catch (const std::exception& error) {
    std::cerr << "zephly_view_load: " << error.what() << '\n';
    return 1;
  }
}
