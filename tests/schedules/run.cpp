// SPDX-License-Identifier: MIT
#include <tests/schedules/run.h>

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <hosts/bluez/bluetooth.h>
#include <hosts/main_queue/main_queue.h>
#include <tests/schedules/allocations.h>
#include <tests/schedules/bluetoothd.h>
#include <tests/schedules/files.h>
#include <tests/schedules/program.h>
#include <tests/schedules/viewers.h>
#include <tests/schedules/virtual_time.h>
#include <tests/soak/application.h>
#include <tests/soak/ledger.h>
#include <tests/support/allocation_count.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/session/zephly.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <variant>

namespace schedules {

namespace {

using namespace std::chrono_literals;
using Zephly::main_queue::MainQueue;
using Zephly::main_queue::Timer;
using Zephly::simulator::Frame;

// The host gives the bus 3 s to accept its last calls.
constexpr Duration endLimit = 3'500ms;
// The strap sends nothing for so long before the end. After SIGTERM, a value that arrives as late
// as this may or may not be part of the recording.
constexpr Duration atTheEnd = 20ms;

// All values that reached the program.
class Log : public Witness {
 public:
  void value(const Frame& frame) override {
    soak::processorTime = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(frame.time).count());
    frames.push_back(frame);
    if (ledger != nullptr) ledger->sent(frame);
    if (viewers != nullptr) viewers->value(frame);
  }
  void linkEnds() override {
    if (ledger == nullptr) return;
    const bool up = ledger->connectsReported() > ledger->linkLosses().received;
    if (up && ledger->linkLosses().sent == ledger->linkLosses().received) ledger->linkLost();
  }

  void wrongCall(const std::string& what) override {
    if (wrong.empty()) wrong = what;
  }

  std::string wrong;
  std::vector<Frame> frames;
  soak::Ledger* ledger = nullptr;
  Viewers* viewers = nullptr;
};

class Run {
 public:
  Run(const Schedule& schedule, std::filesystem::path folder)
      : schedule_(schedule),
        folder_(std::move(folder)),
        bluetoothd_(schedule.seed, log_),
        viewers_(schedule) {
    for (const Step& step : schedule_.steps) {
      if (step.action == Action::endSignal) end_ = step.at;
    }
    bluetoothd_.begun = [this](MainQueue& queue) { plan(queue); };
    ::Zephly::setProcessorClock([] { return soak::processorTime; });
    VirtualTime::start();
    countAllocationsWhere([] { return VirtualTime::driving() && Spared::depth == 0; });
    VirtualTime::limit(end_ + endLimit, [] { ::_exit(exitOfLimit); });
  }

  std::string judge() {
    std::string verdict = judgeOutput();
    // After an exception the host may not know what it has requested.
    return verdict.empty() && failedAllocationCount() == 0 ? log_.wrong : verdict;
  }

  Figures figures() const {
    return {log_.frames.size(), bluetoothd_.links(),     bluetoothd_.calls(), viewers_.opened(),
            viewers_.lost(),    failedAllocationCount(), VirtualTime::now(),  disturbances_};
  }

 private:
  std::string judgeOutput() {
    switch (schedule_.command) {
      case Command::application:
        return runApplication();
      case Command::record:
        return runRecord();
      case Command::monitor:
        return runMonitor();
      case Command::view:
        break;
    }
    return runView();
  }

  void plan(MainQueue& queue) {
    for (const Step& step : schedule_.steps) {
      timers_.push_back(queue.after(step.at, [this, &queue, &step] {
        const Spared spared;
        apply(queue, step);
      }));
    }
    // Just before the end: at the end the program releases the strap.
    timers_.push_back(queue.after(schedule_.duration - atTheEnd, [this] {
      const Spared spared;
      state_ = State{bluetoothd_.connected(), bluetoothd_.settledStreams()};
      bluetoothd_.silence();
    }));
    timers_.push_back(
        queue.after(schedule_.duration - schedule_.calm + 3s, [this] { bluetoothd_.slowDown(); }));
    if (reader_) read(queue);
  }

  void apply(MainQueue& queue, const Step& step) {
    ++disturbances_.at(static_cast<std::size_t>(step.action));
    const auto during = [&](int& counter) {
      ++counter;
      timers_.push_back(queue.after(step.length, [&counter] { --counter; }));
    };
    switch (step.action) {
      case Action::wallClockStep:
        return VirtualTime::stepWallClock(std::chrono::seconds(step.value));
      case Action::diskFull:
        return during(FileFaults::full);
      case Action::diskInterrupted:
        FileFaults::interrupted += step.value;
        return;
      case Action::diskShort:
        FileFaults::shortened += step.value;
        return;
      case Action::readerStalls:
        return during(readerStalled_);
      case Action::viewerOpens:
      case Action::viewerLeaves:
      case Action::viewersStall:
      case Action::rubbish:
        return viewers_.apply(queue, step);
      case Action::allocationFails:
        return failAllocation(static_cast<std::size_t>(step.value));
      case Action::endSignal:
        static_cast<void>(std::raise(SIGTERM));
        return;
      default:
        bluetoothd_.apply(step);
    }
  }

  void read(MainQueue& queue) {
    const Spared spared;
    if (readerStalled_ == 0) reader_->read();
    readTimer_ = queue.after(500ms, [this, &queue] { read(queue); });
  }

  // After the calm everything works again.
  std::string dead() const {
    if (schedule_.has(Action::endSignal) || (!state_ && failedAllocationCount() > 0)) return {};
    if (!state_) return "the program has ended too early";
    if (!state_->connected) return "at the end the strap is not connected";
    if (state_->streams == Zephly::allStreams.size()) return {};
    return "at the end only " + std::to_string(state_->streams) + " streams are subscribed";
  }

  std::string runApplication() {
    soak::Ledger ledger;
    log_.ledger = &ledger;
    soak::Application application(ledger);
    MainQueue queue;
    Zephly::bluez::Options options;
    options.releaseOn = {};
    options.report = [](std::string_view) {};
    if (schedule_.descriptors) options.notifications = Zephly::bluez::Notifications::descriptors;
    std::string verdict;
    {
      Zephly::bluez::Bluetooth bluetooth(queue, std::move(options));
      const auto session = ::Zephly::Zephly::init(application.first());
      application.attachTrainer(*session);
      const Timer stop = queue.after(schedule_.duration, [&] { queue.stop(); });
      try {
        queue.run();
        verdict = dead();
        if (verdict.empty()) ledger.settle();
      } catch (const soak::Wrong& wrong) {
        verdict = wrong.what();
      } catch (const std::bad_alloc&) {
        if (failedAllocationCount() == 0) throw;
      }
      application.drop();
      application.dropTrainer();
    }
    failAllocation(0);
    return verdict;
  }

  std::string runRecord() {
    const auto path = folder_ / "walk.zcap";
    Program program(folder_, withOptions({"record", path.string()}));
    const ProgramResult result = program.run();
    failAllocation(0);
    if (schedule_.diskIsGood() && failedAllocationCount() == 0 &&
        std::filesystem::exists(folder_ / "walk.2.zcap")) {
      return "the recording continues in another file without a reason";
    }
    return judged(result, valuesOf(path));
  }

  std::string runMonitor() { return judgedLines(runRead(withOptions({"monitor", "--json"}))); }

  std::string runView() {
    log_.viewers = &viewers_;
    const ProgramResult result = runRead(withOptions(
        {"view", "--exit-at-end", "--viewer-queue", std::to_string(schedule_.viewerQueue)}));
    std::optional<std::uint64_t> due;
    if (failedAllocationCount() == 0) due = samplesDue();
    std::string verdict = viewers_.judge(due);
    return verdict.empty() ? judgedExit(result, 0) : verdict;
  }

  // With a reader of its standard output.
  ProgramResult runRead(std::vector<std::string> arguments) {
    Program program(folder_, std::move(arguments));
    reader_ = &program;
    ProgramResult result = program.run();
    failAllocation(0);
    reader_ = nullptr;
    return result;
  }

  std::vector<std::string> withOptions(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--duration", durationText()});
    if (schedule_.descriptors)
      arguments.insert(arguments.end(), {"--notifications", "descriptors"});
    return arguments;
  }

  // ECG samples that have to be in every output.
  std::size_t samplesDue() const {
    std::size_t due = 0;
    for (const Frame& frame : log_.frames) {
      if (frame.stream == Zephly::Stream::ecg && frame.time < end_ - atTheEnd) due += 6;
    }
    return due;
  }

  std::string durationText() const {
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(schedule_.duration).count();
    return std::to_string(ms / 1000) + "." + std::to_string(1000 + ms % 1000).substr(1);
  }

  static std::vector<std::vector<std::uint8_t>> valuesOf(const std::filesystem::path& path);
  std::string judged(const ProgramResult& result,
                     const std::vector<std::vector<std::uint8_t>>& values) const;
  std::string judgedLines(const ProgramResult& result) const;
  std::string judgedExit(const ProgramResult& result, std::size_t missing) const;

  struct State {
    bool connected;
    std::size_t streams;
  };

  Schedule schedule_;
  std::filesystem::path folder_;
  Log log_;
  Bluetoothd bluetoothd_;
  Viewers viewers_;
  std::array<std::uint64_t, actionCount> disturbances_{};
  Duration end_ = schedule_.duration;
  std::vector<Timer> timers_;
  Timer readTimer_;
  std::optional<State> state_;
  Program* reader_ = nullptr;
  int readerStalled_ = 0;
};

// A recording that a full disk has interrupted continues in other files, which the reader follows.
std::vector<std::vector<std::uint8_t>> Run::valuesOf(const std::filesystem::path& path) {
  std::vector<std::vector<std::uint8_t>> values;
  if (!std::filesystem::exists(path)) return values;
  Zephly::capture::Reader reader(path);
  while (const auto record = reader.next()) {
    const auto* value = std::get_if<Zephly::capture::Value>(&record->what);
    if (value != nullptr && value->bytes) values.push_back(*value->bytes);
  }
  return values;
}

std::string Run::judgedExit(const ProgramResult& result, std::size_t missing) const {
  if (result.exitCode == 0) {
    if (missing == 0) return {};
    return "exit code 0, and " + std::to_string(missing) + " values are missing";
  }
  if (result.errors.empty())
    return "exit code " + std::to_string(result.exitCode) + ", no sentence";
  if (failedAllocationCount() > 0) return {};
  const bool excuse = missing > 0 || log_.frames.empty() || schedule_.has(Action::diskFull) ||
                      schedule_.has(Action::readerStalls);
  return excuse ? std::string() : "a failure without a reason: " + result.errors;
}

std::string Run::judged(const ProgramResult& result,
                        const std::vector<std::vector<std::uint8_t>>& values) const {
  std::size_t missing = 0;
  auto next = values.begin();
  for (const Frame& frame : log_.frames) {
    if (next != values.end() && *next == frame.bytes) {
      ++next;
    } else if (frame.time < end_ - atTheEnd) {
      ++missing;
    }
  }
  if (next != values.end()) return "the capture has a value twice, out of order or never sent";
  if (missing > 0 && schedule_.diskIsGood() && failedAllocationCount() == 0)
    return std::to_string(missing) + " values are missing in the capture";
  std::string verdict = judgedExit(result, missing);
  return verdict.empty() ? dead() : verdict;
}

std::string Run::judgedLines(const ProgramResult& result) const {
  const std::size_t due = samplesDue();
  std::size_t samples = 0;
  bool up = false;
  for (const std::string& line : result.lines) {
    if (line.empty() || line.front() != '{' || line.back() != '}') return "a cut line: " + line;
    if (line.find(R"("event":"ecg")") != std::string::npos) ++samples;
    const bool connected = line.find(R"("event":"connected")") != std::string::npos;
    const bool disconnected = line.find(R"("event":"disconnected")") != std::string::npos;
    if ((connected && up) || (disconnected && !up)) return "a change of the link is reported twice";
    if (connected || disconnected) up = connected;
  }
  const std::size_t missing = samples < due ? due - samples : 0;
  if (missing > 0 && !schedule_.has(Action::readerStalls) && failedAllocationCount() == 0)
    return std::to_string(missing) + " ECG samples are missing in the output";
  std::string verdict = judgedExit(result, missing);
  return verdict.empty() ? dead() : verdict;
}

}  // namespace

std::string run(const Schedule& schedule, const std::filesystem::path& folder, Figures& figures) {
  Run run(schedule, folder);
  std::string verdict;
  try {
    verdict = run.judge();
  } catch (const std::exception& error) {
    verdict = std::string("an exception: ") + error.what();
  }
  figures = run.figures();
  return verdict;
}

}  // namespace schedules
