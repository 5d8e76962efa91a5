// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The application of a soak run: delegates that pass their calls to the ledger, and come
/// and go.
///
///   Application application(ledger);
///   application.attach(session, linkIsUp);
///   application.dropAfter(40);            // from inside its 40th call from now
///
/// A session holds its delegate weakly and takes one only when it is created. Another one is put
/// into it with the tests' access to its fields.

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

  /// A new delegate, in place of one before.
  void attach(::Zephly::Zephly& session, bool linkIsUp);
  /// The one for a session to be.
  std::shared_ptr<ZephlyDelegate> first();
  /// Releases the delegate.
  void drop();
  /// The same, from inside a call: the last of the next `calls`.
  void dropAfter(std::uint64_t calls) { callsLeft_ = calls; }
  bool attached() const { return delegate_ != nullptr; }

  /// The same for the receiver of repetitions.
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
  std::uint64_t callsLeft_ = 0;  // 0: stays
  std::uint64_t trainerCallsLeft_ = 0;
  std::uint64_t delegates_ = 0;
  std::uint64_t trainers_ = 0;
};

}  // namespace soak
