// SPDX-License-Identifier: MIT
/// Schedules of the whole system: a session, `zephly record` and `zephly monitor` on a simulated
/// bluetoothd, in simulated time, with everything going wrong that a seed says.
///
///   zephly_schedules --seeds 1000          # the seeds 1 to 1000
///   zephly_schedules --first 1001 --seeds 1000
///   zephly_schedules --seeds 9000 --only "zephly view" --only SIGTERM
///   zephly_schedules --seed 17             # one, with its steps
///   zephly_schedules --seed 17 --shrink    # the fewest steps that still fail
///   zephly_schedules --seed 17 --trace     # and every message on the bus
///   zephly_schedules --schedule FILE       # one as such a run prints it; may be repeated
///
/// Reports its progress on the standard error every ten seconds, and what it has run at the end.
/// Each schedule runs in a process of its own. Exit code 1 when a rule was broken.

#include <tests/schedules/run.h>
#include <tests/schedules/schedule.h>
#include <tests/schedules/simulated_bus.h>

#include <CLI/CLI.hpp>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <numeric>
#include <ratio>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using schedules::Figures;
using schedules::Schedule;

// What a child leaves to its parent.
struct Shared {
  Figures figures;
  bool done = false;
  std::array<char, 400> verdict{};
};

// Real time; a schedule takes milliseconds.
constexpr unsigned watchdog = 60;

class Child {
 public:
  Child(const Schedule& schedule, const std::filesystem::path& folder, bool quiet)
      : shared_(static_cast<Shared*>(::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    if (shared_ == MAP_FAILED) throw std::bad_alloc();
    std::cout.flush();
    pid_ = ::fork();
    if (pid_ == 0) execute(schedule, folder, quiet);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { ::munmap(shared_, sizeof(Shared)); }

  pid_t pid() const { return pid_; }
  const Figures& figures() const { return shared_->figures; }

  std::string verdict(int status) const {
    if (WIFSIGNALED(status)) {
      return WTERMSIG(status) == SIGALRM ? "the program is blocked"
                                         : "ended by signal " + std::to_string(WTERMSIG(status));
    }
    if (WEXITSTATUS(status) == schedules::exitOfLimit) return "the program does not end in time";
    if (!shared_->done) return "exit code " + std::to_string(WEXITSTATUS(status));
    return shared_->verdict.data();
  }

 private:
  [[noreturn]] void execute(const Schedule& schedule, const std::filesystem::path& folder,
                            bool quiet) {
    ::alarm(watchdog);
    std::filesystem::create_directories(folder);
    if (quiet) std::freopen("/dev/null", "w", stdout);
    const std::string verdict = schedules::run(schedule, folder, shared_->figures);
    std::strncpy(shared_->verdict.data(), verdict.c_str(), shared_->verdict.size() - 1);
    shared_->done = true;
    // Without the destructors of static objects: the session of an application lives until here.
    std::cout.flush();
    ::_exit(0);
  }

  Shared* shared_;
  pid_t pid_ = -1;
};

class Runner {
 public:
  Runner(unsigned jobs, std::vector<std::string> only)
      : jobs_(jobs),
        only_(std::move(only)),
        folder_(std::filesystem::temp_directory_path() /
                ("schedules-" + std::to_string(::getpid()))) {}
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;
  ~Runner() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  std::string one(const Schedule& schedule) {
    const auto folder = folder_ / "one";
    std::filesystem::remove_all(folder);
    const Child child(schedule, folder, true);
    int status = 0;
    ::waitpid(child.pid(), &status, 0);
    return child.verdict(status);
  }

  int all(std::uint64_t first, std::uint64_t count, bool untilFailure) {
    std::uint64_t next = first;
    const auto more = [&] { return next < first + count && !(untilFailure && failed_ > 0); };
    while (more() || !children_.empty()) {
      while (more() && children_.size() < jobs_) begin(next++);
      reap();
      reportProgress(next - first - children_.size(), count);
    }
    printFigures();
    return failed_ == 0 ? 0 : 1;
  }

  std::string shrink(Schedule& schedule) {
    std::string verdict = one(schedule);
    for (std::size_t i = 0; !verdict.empty() && i < schedule.steps.size();) {
      std::vector<std::size_t> kept(schedule.steps.size());
      std::iota(kept.begin(), kept.end(), std::size_t{0});
      kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(i));
      const Schedule shorter = schedule.with(kept);
      const std::string again = one(shorter);
      if (again.empty()) {
        ++i;
      } else {
        schedule = shorter;
        verdict = again;
      }
    }
    return verdict;
  }

 private:
  struct Running {
    std::unique_ptr<Child> child;
    std::uint64_t seed;
  };

  void begin(std::uint64_t seed) {
    const Schedule schedule = Schedule::ofSeed(seed);
    if (!only_.empty() && !isChosen(schedule.text())) return;
    ++begun_;
    auto child = std::make_unique<Child>(schedule, folder_ / std::to_string(seed), true);
    const pid_t pid = child->pid();
    children_[pid] = {std::move(child), seed};
  }

  bool isChosen(const std::string& text) const {
    return std::all_of(only_.begin(), only_.end(), [&](const std::string& part) {
      return text.find(part) != std::string::npos;
    });
  }

  void reap() {
    if (children_.empty()) return;
    int status = 0;
    const auto found = children_.find(::wait(&status));
    if (found == children_.end()) return;
    const Running running = std::move(found->second);
    children_.erase(found);
    add(running.child->figures());
    const std::string verdict = running.child->verdict(status);
    std::error_code ignored;
    std::filesystem::remove_all(folder_ / std::to_string(running.seed), ignored);
    if (verdict.empty()) return;
    ++failed_;
    std::cout << "seed " << running.seed << ": " << verdict << std::endl;
  }

  void add(const Figures& figures) {
    total_.values += figures.values;
    total_.links += figures.links;
    total_.calls += figures.calls;
    total_.viewers += figures.viewers;
    total_.viewerLosses += figures.viewerLosses;
    total_.failedAllocations += figures.failedAllocations;
    total_.time += figures.time;
    for (std::size_t i = 0; i < schedules::actionCount; ++i) {
      total_.disturbances.at(i) += figures.disturbances.at(i);
    }
  }

  void reportProgress(std::uint64_t done, std::uint64_t count) {
    const auto now = Clock::now();
    if (now - reported_ < std::chrono::seconds(10)) return;
    reported_ = now;
    std::cerr << done << " of " << count << " schedules, " << failed_ << " failed" << std::endl;
  }

  void printFigures() const {
    using Hours = std::chrono::duration<double, std::ratio<3600>>;
    std::cout << begun_ << " schedules of " << std::fixed << std::setprecision(1)
              << Hours(total_.time).count() << " simulated hours: " << total_.links << " links, "
              << total_.values << " values, " << total_.calls << " calls, " << total_.viewers
              << " viewers who were too slow for " << total_.viewerLosses << " messages, "
              << total_.failedAllocations << " allocations failed\n";
    for (std::size_t i = 0; i < schedules::actionCount; ++i) {
      std::cout << std::setw(9) << total_.disturbances.at(i) << " x "
                << nameOf(static_cast<schedules::Action>(i)) << '\n';
    }
    std::cout << failed_ << " failed\n";
  }

  using Clock = std::chrono::steady_clock;

  unsigned jobs_;
  std::vector<std::string> only_;
  std::uint64_t begun_ = 0;
  std::filesystem::path folder_;
  Clock::time_point reported_ = Clock::now();
  std::map<pid_t, Running> children_;
  Figures total_;
  int failed_ = 0;
};

Schedule scheduleIn(const std::string& file) {
  std::ifstream stream(file);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (!stream) throw std::runtime_error(file + " cannot be read");
  try {
    return Schedule::ofText(text);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(file + ": " + error.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App program("Schedules of the whole system in simulated time.", "zephly_schedules");
  std::uint64_t count = 0;
  std::uint64_t first = 1;
  std::uint64_t seed = 0;
  std::vector<std::string> only;
  std::vector<std::string> files;
  bool shrink = false;
  bool untilFailure = false;
  bool trace = false;
  unsigned jobs = std::max(1U, std::thread::hardware_concurrency());
  program.add_option("--seeds", count, "Run so many seeds");
  program.add_option("--first", first, "The first of them");
  program.add_option("--only", only,
                     "Skip seeds whose text lacks this; several times: all of them");
  program.add_option("--seed", seed, "Run one seed and print its steps");
  program.add_option("--schedule", files, "Run the schedule in this file and print its steps");
  program.add_flag("--shrink", shrink, "Remove steps as long as it fails");
  program.add_flag("--until-failure", untilFailure, "End at the first seed that fails");
  program.add_flag("--trace", trace, "Print the messages on the bus");
  program.add_option("--jobs", jobs, "Schedules at a time");
  CLI11_PARSE(program, argc, argv);
  Runner runner(std::max(1U, jobs), std::move(only));
  if (seed == 0 && files.empty()) return runner.all(first, count, untilFailure);
  std::vector<Schedule> chosen;
  try {
    for (const std::string& file : files) chosen.push_back(scheduleIn(file));
  } catch (const std::runtime_error& error) {
    std::cerr << "zephly_schedules: " << error.what() << '\n';
    return 2;
  }
  if (seed != 0) chosen.push_back(Schedule::ofSeed(seed));
  bool failed = false;
  for (Schedule& schedule : chosen) {
    std::string verdict = shrink ? runner.shrink(schedule) : runner.one(schedule);
    if (trace) {
      std::ofstream terminal("/dev/fd/1");
      schedules::BusService::trace = &terminal;
      verdict = runner.one(schedule);
      schedules::BusService::trace = nullptr;
    }
    std::cout << schedule.text() << (verdict.empty() ? "as it must be" : verdict) << '\n';
    failed = failed || !verdict.empty();
  }
  return failed ? 1 : 0;
}
