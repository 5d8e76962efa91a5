#pragma once
/// @file
/// Compares what a strap sent with what an application was told: everything once, in order, bit
/// for bit.
///
///   Ledger ledger;
///   ledger.attachApplication(false);   // from now on somebody listens, the link is down
///   ledger.sent(frame);                // the strap: this frame will arrive
///   ledger.ecg(sample);                // the application: this is what I was told
///   ledger.settle();                   // nothing is under way any more
///
/// While nobody listens frames go nowhere, and are counted as such; the session's lead-off
/// detection and its exercise detection go on, and so do the ledger's. The respiration chain stands
/// still then: it is fed only with samples that somebody hears.
///
/// The first thing that is wrong ends in soak::Wrong.

#include <simulator/frame.h>
#include <simulator/training_plan.h>
#include <tests/soak/breathing_model.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/protocol/battery_status.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>

namespace soak {

namespace simulator = ::Zephly::simulator;

/// What was wrong, in one line.
class Wrong : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The processor time that the engines of this program are told: the strap's own, in microseconds.
/// So that resets happen at the same sample whatever the machine does.
extern std::uint64_t processorTime;

/// What became of the things of one kind.
struct Account {
  std::uint64_t sent = 0;     ///< samples or readings that the strap sent, or events in them
  std::uint64_t told = 0;     ///< that the application was told
  std::uint64_t unheard = 0;  ///< sent while nobody listened
};

class Ledger {
 public:
  Ledger();
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  // The strap's side.

  /// The frame is under way to a subscriber.
  void sent(const simulator::Frame& frame);
  /// The link was lost after everything that was sent so far.
  void linkLost();

  // The application's side: who listens. Attaching, only while nothing is under way.

  void attachApplication(bool linkIsUp);
  void detachApplication();
  void attachTrainer();
  void detachTrainer();

  // What they are told.

  void connected();
  void disconnected();
  void leadoff(bool off);
  void ecg(float sample);
  void respiration(float sample);
  void temperature(float object, float ambient, float body);
  void battery(BatteryStatus status);
  void repetition(simulator::Exercise exercise);

  /// Everything that was sent has been told, or went nowhere.
  void settle() const;

  const Account& account(simulator::Stream stream) const {
    return accounts_.at(static_cast<std::size_t>(stream));
  }
  std::uint64_t framesSent() const { return framesSent_; }
  const Account& repetitions() const { return repetitions_; }
  const Account& leadoffChanges() const { return leadoffChanges_; }
  /// Of those, how often contact was lost.
  std::uint64_t contactsLost() const { return contactsLost_; }
  std::uint64_t connectsTold() const { return connectsTold_; }
  const Account& linkLosses() const { return linkLosses_; }

 private:
  struct Entry {
    simulator::StrapTime time{};
    std::optional<simulator::Stream> stream;  // empty: the link was lost
    std::array<std::uint8_t, 20> bytes{};
  };
  // What comes next out of the entry in front.
  enum class Step { unknown, value, leadoff, respiration, repetitions };

  Account& accountOf(const Entry& entry);
  void passSilentOnes();
  bool passSilentStep();
  void finishStep();
  void finishSample(std::size_t samples);
  void openRespirationSample();
  void openMotion();
  Entry& expect(const char* what, simulator::Stream stream, Step step);
  [[noreturn]] void fail(const std::string& what) const;
  std::string expected() const;

  std::deque<Entry> log_;
  Step step_ = Step::unknown;
  std::size_t sample_ = 0;                          // in the entry in front
  std::deque<simulator::Exercise> dueRepetitions_;  // of the motion frame in front

  bool application_ = false;
  bool trainer_ = false;
  bool linkIsUp_ = false;
  bool offNext_ = false;         // what the lead-off report says that is due
  std::optional<bool> contact_;  // after the last respiration sample
  BreathingModel breathing_;
  ::Zephly::SignalProcessor motion_;  // an engine of its own, for exercises only

  std::array<Account, simulator::allStreams.size()> accounts_{};
  Account repetitions_;
  Account leadoffChanges_;
  Account linkLosses_;
  std::uint64_t framesSent_ = 0;
  std::uint64_t contactsLost_ = 0;
  std::uint64_t connectsTold_ = 0;
};

}  // namespace soak
