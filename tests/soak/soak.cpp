// SPDX-License-Identifier: MIT
#include <tests/soak/soak.h>

#include <hosts/main_queue/main_queue.h>
#include <hosts/simulated/pacer.h>
#include <hosts/simulated/radio.h>
#include <hosts/vitals/session_vitals.h>
#include <simulator/random.h>
#include <simulator/strap.h>
#include <tests/soak/application.h>
#include <tests/soak/vitals_check.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/dsp/processor_clock.h>

#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>
#include <bench/null_buffer.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace soak {

namespace {

using namespace std::chrono_literals;
using simulated::Duration;
using simulated::Time;
using Clock = std::chrono::steady_clock;

// No machine reaches this speed, so the pacer never waits.
constexpr double unattainableSpeed = 1e9;

// Planned operations never coincide with a frame or its delivery, so that the receivers of each
// frame are known: frames are due at whole milliseconds or thirds of them. Losses and changes of
// delegates do not coincide either.
constexpr Duration delegateInstant = 1ns;
constexpr Duration lossInstant = 2ns;

constexpr Duration electrodesOffFor = 12s;  // longer than any absence of the link
constexpr Duration longestAbsence = 10s;
constexpr Duration quietBefore = 85s;  // of a cycle: sets and a walk

Duration seconds(double count) { return Duration(std::llround(count * 1000) * 1'000'000); }

double inSeconds(Duration duration) { return std::chrono::duration<double>(duration).count(); }

void demand(bool condition, const char* otherwise) {
  if (!condition) throw std::invalid_argument(otherwise);
}

Options checked(const Options& options) {
  demand(options.hours >= 0.05 && options.hours <= 1000, "--hours takes 0.05 to 1000");
  const double all = options.hours * 3600;
  demand(options.losses >= 0 && options.losses * 60.0 <= all, "--losses: at most one a minute");
  demand(options.electrodeLosses >= 1 && options.electrodeLosses * 120.0 <= all,
         "--electrode-losses: at least one, at most one in two minutes");
  return options;
}

// A cycle of one loss of the electrodes, three sets and a walk, repeated.
simulator::TrainingPlan planOf(const Options& options, simulator::Random& random) {
  simulator::TrainingPlan plan;
  plan.exercises = {{Zephly::Exercise::jump, 5s, 5},
                    {Zephly::Exercise::pushUp, 20s, 10},
                    {Zephly::Exercise::sitUp, 50s, 5}};
  plan.walks = {{70s, 10s}};
  plan.charging = {{40s, 30s}};
  const Duration cycle = seconds(options.hours * 3600 / options.electrodeLosses);
  const double latest = inSeconds(cycle - electrodesOffFor - 2s);
  plan.electrodesOff = {
      {seconds(random.uniform(inSeconds(quietBefore), latest)), electrodesOffFor}};
  plan.cycle = cycle;
  return plan;
}

simulated::Device& addStrap(simulated::Radio& radio) {
  simulated::Device& device = radio.addDevice({.name = std::string(peripheralName)});
  simulated::addStrapProfile(device);
  return device;
}

std::size_t difference(std::size_t left, std::size_t right) {
  return std::max(left, right) - std::min(left, right);
}

// The processor clock of the engines during its lifetime.
class StrapClock {
 public:
  StrapClock() : before_(::Zephly::setProcessorClock([] { return processorTime; })) {}
  ~StrapClock() { ::Zephly::setProcessorClock(before_); }
  StrapClock(const StrapClock&) = delete;
  StrapClock& operator=(const StrapClock&) = delete;

 private:
  ::Zephly::ProcessorClock before_;
};

class Soak {
 public:
  explicit Soak(const Options& options);
  Soak(const Soak&) = delete;
  Soak& operator=(const Soak&) = delete;

  Outcome run();

 private:
  void planLoss(int index);
  void lose(int index);
  void planChange();
  void change();
  void comeBack();
  void planHour(int hour);
  void warmedUp();
  void finish();
  template <class Then>
  void whenQuiet(Then then);
  void progress(int hour) const;
  void judge(Outcome& outcome) const;

  Duration uniform(double low, double high) { return seconds(random_.uniform(low, high)); }

  Options options_;
  Duration length_;
  const bench::SilentOutput silent_;
  const StrapClock clock_;
  simulator::Random random_;
  ::Zephly::main_queue::MainQueue queue_;
  simulated::Scheduler scheduler_;
  simulated::Radio radio_{scheduler_};
  simulated::Device& device_;
  VitalsCheck beats_;
  simulator::Strap source_;
  Ledger ledger_;
  LoggedStrap strap_;
  Application application_{ledger_};
  ::Zephly::hosts::SessionVitals vitals_;
  std::shared_ptr<::Zephly::Zephly> session_;
  std::unique_ptr<simulated::Pacer> pacer_;
  simulated::Scheduler::EventId nextChange_;
  Clock::time_point begin_ = Clock::now();
  ProcessState start_;
  ProcessState warm_;
  ProcessState end_;
  double strapSeconds_ = 0;
};

Soak::Soak(const Options& options)
    : options_(checked(options)),
      length_(seconds(options.hours * 3600)),
      random_(options.seed),
      device_(addStrap(radio_)),
      source_({.seed = options.seed, .plan = planOf(options, random_), .observer = &beats_}),
      strap_(device_, source_, ledger_, options.fault),
      vitals_(beats_, [this] { return scheduler_.now(); }) {
  beats_.watch([this] {
    return VitalsCheck::Conditions{strap_.connections(), strap_.subscribed(),
                                   source_.electrodesOn(scheduler_.now())};
  });
  session_ = ::Zephly::Zephly::init(application_.first());
  application_.attachTrainer(*session_);
}

Outcome Soak::run() {
  pacer_ = std::make_unique<simulated::Pacer>(queue_, scheduler_, unattainableSpeed);
  planLoss(0);
  scheduler_.at(delegateInstant, [this] { planChange(); });
  planHour(1);
  scheduler_.at(1s + delegateInstant, [this] { whenQuiet([this] { start_ = processState(); }); });
  scheduler_.at(std::min<Duration>(1h, length_ / 4) + delegateInstant, [this] { warmedUp(); });
  scheduler_.at(length_ + delegateInstant, [this] { finish(); });
  Outcome outcome;
  try {
    queue_.run();
  } catch (const Wrong& wrong) {
    strapSeconds_ = inSeconds(scheduler_.now());
    end_ = processState();
    outcome.wrong.push_back("after " + std::to_string(strapSeconds_) +
                            " s of strap time: " + wrong.what());
  }
  judge(outcome);
  return outcome;
}

// The link ---------------------------------------------------------------------------------------

// The run is divided into as many parts as there are losses. Each part has one, away from its ends.
void Soak::planLoss(int index) {
  if (index == options_.losses) return;
  const double part = inSeconds(length_) / options_.losses;
  scheduler_.at(uniform((index + 0.3) * part, (index + 0.9) * part) + lossInstant,
                [this, index] { lose(index); });
}

void Soak::lose(int index) {
  if (!strap_.subscribed()) throw Wrong("the link was not back before it was to be lost again");
  Duration absence{};
  if (random_.below(3) != 0) {
    const double part = inSeconds(length_) / options_.losses;
    absence = uniform(0.05, std::min(inSeconds(longestAbsence), part / 4));
  }
  if (random_.below(3) == 0) {
    strap_.loseLinkWithNextFrame(absence);
  } else {
    strap_.loseLink(absence);
  }
  planLoss(index + 1);
}

// The delegates ----------------------------------------------------------------------------------

void Soak::planChange() {
  nextChange_ = scheduler_.after(uniform(5, 60), [this] { change(); });
}

void Soak::change() {
  comeBack();
  planChange();
  switch (random_.below(6)) {
    case 0:
      application_.drop();
      application_.attach(*session_, strap_.connected());
      return;
    case 1:
      application_.drop();
      break;
    case 2:
      application_.dropAfter(1 + random_.below(5000));
      break;
    case 3:
      application_.dropTrainer();
      application_.attachTrainer(*session_);
      return;
    case 4:
      application_.dropTrainer();
      break;
    default:
      application_.dropTrainerAfter(1 + random_.below(3));
      break;
  }
  scheduler_.after(uniform(0.1, 30), [this] { comeBack(); });
}

void Soak::comeBack() {
  ledger_.settle();
  if (!application_.attached()) application_.attach(*session_, strap_.connected());
  if (!application_.trainerAttached()) application_.attachTrainer(*session_);
}

// The hours --------------------------------------------------------------------------------------

// With both delegates attached and all streams subscribed the memory in use is comparable.
template <class Then>
void Soak::whenQuiet(Then then) {
  comeBack();
  if (strap_.subscribed()) {
    then();
  } else {
    scheduler_.after(1s, [this, then] { whenQuiet(then); });
  }
}

void Soak::planHour(int hour) {
  if (std::chrono::hours(hour) > length_) return;
  scheduler_.at(std::chrono::hours(hour) + delegateInstant, [this, hour] {
    progress(hour);
    planHour(hour + 1);
  });
}

void Soak::warmedUp() {
  whenQuiet([this] { warm_ = processState(); });
}

void Soak::finish() {
  whenQuiet([this] {
    ledger_.settle();
    end_ = processState();
    strapSeconds_ = inSeconds(scheduler_.now());
    // The current turn may still run further events.
    strap_.switchOff();
    scheduler_.cancel(nextChange_);
    queue_.stop();
  });
}

void Soak::progress(int hour) const {
  const ProcessState state = processState();
  const double wall = std::chrono::duration<double>(Clock::now() - begin_).count();
  std::cerr << "hour " << hour << " of " << options_.hours << ": " << ledger_.framesSent()
            << " frames, " << ledger_.linkLosses().sent << " links lost, " << ledger_.contactsLost()
            << " times no contact, " << application_.delegates() << " delegates, "
            << state.liveBlocks << " blocks, heap " << state.heapBytes / 1024 << " KiB, resident "
            << state.residentBytes / 1024 << " KiB, " << std::lround(hour * 3600 / wall)
            << " times real time" << std::endl;
}

// The result -------------------------------------------------------------------------------------

void Soak::judge(Outcome& outcome) const {
  for (const Zephly::Stream stream : Zephly::allStreams) {
    outcome.streams.at(static_cast<std::size_t>(stream)) = ledger_.account(stream);
  }
  outcome.framesSent = ledger_.framesSent();
  outcome.framesUnsubscribed = strap_.framesUnsubscribed();
  outcome.repetitions = ledger_.repetitions();
  outcome.leadoffChanges = ledger_.leadoffChanges();
  outcome.linkLosses = ledger_.linkLosses();
  outcome.beats = beats_.beats();
  outcome.breaths = beats_.breaths();
  outcome.vitalsSeconds = beats_.seconds();
  outcome.contactsLost = ledger_.contactsLost();
  outcome.connections = strap_.connections();
  outcome.connectsReported = ledger_.connectsReported();
  outcome.delegates = application_.delegates();
  outcome.trainers = application_.trainers();
  outcome.start = start_;
  outcome.warm = warm_;
  outcome.end = end_;
  outcome.strapSeconds = strapSeconds_;
  outcome.wallSeconds = std::chrono::duration<double>(Clock::now() - begin_).count();
  if (!outcome.wrong.empty()) return;

  const auto check = [&outcome](bool right, const std::string& otherwise) {
    if (!right) outcome.wrong.push_back(otherwise);
  };
  const auto balance = [&check](const Account& account, const std::string& what) {
    check(account.sent == account.received + account.withoutDelegate && account.received > 0,
          what + ": received and without a delegate do not add up to sent");
  };
  for (const Zephly::Stream stream : Zephly::allStreams) {
    balance(ledger_.account(stream), std::string(streamInfo(stream).name));
  }
  balance(outcome.repetitions, "repetitions");
  balance(outcome.leadoffChanges, "changes of contact");
  check(outcome.beats.sent == outcome.beats.received &&
            outcome.beats.sent > static_cast<std::uint64_t>(options_.hours * 1000),
        "beats: not each one of the wearer was reported, or there were few");
  check(outcome.breaths > static_cast<std::uint64_t>(options_.hours * 200), "few breaths");
  const auto losses = static_cast<std::uint64_t>(options_.losses);
  check(outcome.linkLosses.sent == losses, "not every planned loss of the link took place");
  check(outcome.connections == losses + 1, "the session did not connect once after each loss");
  check(outcome.contactsLost >= static_cast<std::uint64_t>(options_.electrodeLosses),
        "not every loss of the electrodes was noticed");

  const auto within = [&check](std::size_t warm, std::size_t end, std::size_t tolerance,
                               const std::string& what) {
    std::ostringstream text;
    text << what << ": " << warm << " after the warm-up, " << end << " at the end, tolerance "
         << tolerance;
    check(difference(warm, end) <= tolerance, text.str());
  };
  within(warm_.liveBlocks, end_.liveBlocks, Tolerance::blocks, "live blocks");
  within(warm_.heapBytes, end_.heapBytes, Tolerance::heapBytes, "bytes of the heap in use");
  within(warm_.residentBytes, end_.residentBytes, Tolerance::residentBytes, "resident bytes");
  check(end_.descriptors <= start_.descriptors,
        "open files: " + std::to_string(start_.descriptors) + " at the start, " +
            std::to_string(end_.descriptors) + " at the end");
  check(end_.threads <= start_.threads, "threads: " + std::to_string(start_.threads) +
                                            " at the start, " + std::to_string(end_.threads) +
                                            " at the end");
}

}  // namespace

Outcome run(const Options& options) {
  Soak soak(options);
  return soak.run();
}

}  // namespace soak
