// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The application of a soak run: delegates that pass their calls to the ledger. They are replaced
/// during the run.
///
///   Application application(ledger);
///   application.attach(session, linkIsUp);
///   application.dropAfter(40);            // from inside its 40th call from now
///
/// A session owns no delegate, and accepts one only in its constructor. Later ones are set through
/// the tests' access to its private members.

#include <tests/soak/ledger.h>
#include <zephly/session/zephly.h>

#include <cstdint>
#include <memory>

namespace soak {

class Application {
 public:
  explicit Application(Ledger& ledger) : ledger_(ledger) {}
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Creates a delegate that replaces the previous one.
  void attach(::Zephly::Zephly& session, bool linkIsUp);
  /// The delegate for the constructor of a session.
  std::shared_ptr<ZephlyDelegate> first();
  /// Releases the delegate.
  void drop();
  /// Releases the delegate from within a call, the last of the next `calls`.
  void dropAfter(std::uint64_t calls) { callsLeft_ = calls; }
  bool attached() const { return delegate_ != nullptr; }

  // The same for the delegate that receives repetitions.
  void attachTrainer(::Zephly::Zephly& session);
  void dropTrainer();
  void dropTrainerAfter(std::uint64_t calls) { trainerCallsLeft_ = calls; }
  bool trainerAttached() const { return trainer_ != nullptr; }

  std::uint64_t delegates() const { return delegates_; }  ///< so far
  std::uint64_t trainers() const { return trainers_; }

 private:
  class Delegate;
  class Trainer;

  void countCall();
  void countTrainerCall();

  Ledger& ledger_;
  std::shared_ptr<Delegate> delegate_;
  std::shared_ptr<Trainer> trainer_;
  std::uint64_t callsLeft_ = 0;  // 0: the delegate is not released
  std::uint64_t trainerCallsLeft_ = 0;
  std::uint64_t delegates_ = 0;
  std::uint64_t trainers_ = 0;
};

}  // namespace soak
