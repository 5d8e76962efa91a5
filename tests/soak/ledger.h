// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Compares the strap's frames with the application's calls. Every sample must arrive once, in
/// order, bit for bit.
///
///   Ledger ledger;
///   ledger.attachApplication(false);   // an application is attached, the link is down
///   ledger.sent(frame);                // the strap: this frame will arrive
///   ledger.ecg(sample);                // called by the application
///   ledger.settle();                   // nothing is in transit
///
/// Without an application frames are counted separately. The session's lead-off detection and
/// its exercise detection continue, and so do the ledger's. The respiration chain then stops: it
/// processes only samples that are delivered.
///
/// The first difference throws soak::Wrong.

#include <simulator/frame.h>
#include <tests/soak/breathing_model.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/battery_status.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>

namespace soak {

namespace simulator = ::Zephly::simulator;

/// A difference, described in one line.
class Wrong : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The processor time for the engines of this program: the strap's time, in microseconds.
/// Makes resets happen at the same sample on every machine.
extern std::uint64_t processorTime;

/// The counts of one kind of event.
struct Account {
  std::uint64_t sent = 0;      ///< samples or readings that the strap sent, or events in them
  std::uint64_t received = 0;  ///< by the application
  std::uint64_t withoutDelegate = 0;  ///< sent without a delegate
};

class Ledger {
 public:
  Ledger();
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  // The strap's side.

  /// The frame is in transit to a subscriber.
  void sent(const simulator::Frame& frame);
  /// The link was lost after the frames sent so far.
  void linkLost();

  // The application's side. Attach only while nothing is in transit.

  void attachApplication(bool linkIsUp);
  void detachApplication();
  void attachTrainer();
  void detachTrainer();

  // Calls of the delegates.

  void connected();
  void disconnected();
  void leadoff(bool off);
  void ecg(float sample);
  void respiration(float sample);
  void temperature(float object, float ambient, float body);
  void battery(BatteryStatus status);
  void repetition(Zephly::Exercise exercise);

  /// Everything sent has been received or was sent without a delegate.
  void settle() const;

  const Account& account(Zephly::Stream stream) const {
    return accounts_.at(static_cast<std::size_t>(stream));
  }
  std::uint64_t framesSent() const { return framesSent_; }
  const Account& repetitions() const { return repetitions_; }
  const Account& leadoffChanges() const { return leadoffChanges_; }
  /// The part of these changes in which contact was lost.
  std::uint64_t contactsLost() const { return contactsLost_; }
  std::uint64_t connectsReported() const { return connectsReported_; }
  const Account& linkLosses() const { return linkLosses_; }

 private:
  struct Entry {
    Zephly::StrapTime time{};
    std::optional<Zephly::Stream> stream;  // empty: the link was lost
    std::array<std::uint8_t, 20> bytes{};
  };
  // The next call that the front entry leads to.
  enum class Step { unknown, value, leadoff, respiration, repetitions };

  Account& accountOf(const Entry& entry);
  void passSilentOnes();
  bool passSilentStep();
  void finishStep();
  void finishSample(std::size_t samples);
  void openRespirationSample();
  void openMotion();
  Entry& expect(const char* what, Zephly::Stream stream, Step step);
  [[noreturn]] void fail(const std::string& what) const;
  std::string expected() const;

  std::deque<Entry> log_;
  Step step_ = Step::unknown;
  std::size_t sample_ = 0;                       // in the front entry
  std::deque<Zephly::Exercise> dueRepetitions_;  // of the motion frame at the front

  bool application_ = false;
  bool trainer_ = false;
  bool linkIsUp_ = false;
  bool offNext_ = false;         // the argument of the next lead-off report
  std::optional<bool> contact_;  // after the last respiration sample
  BreathingModel breathing_;
  ::Zephly::SignalProcessor motion_;  // a separate engine, used for exercises only

  std::array<Account, Zephly::allStreams.size()> accounts_{};
  Account repetitions_;
  Account leadoffChanges_;
  Account linkLosses_;
  std::uint64_t framesSent_ = 0;
  std::uint64_t contactsLost_ = 0;
  std::uint64_t connectsReported_ = 0;
};

}  // namespace soak
