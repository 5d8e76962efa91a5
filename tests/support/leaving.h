// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A delegate whose last owner releases it during a call. The caller has to own it until the call
/// returns.
///
///   class Application : public Leaving<ZephlyDelegate> {
///     using Leaving::Leaving;
///     void didReceiveECG(float) override { leave(); }
///   };
///   std::shared_ptr<Leaving<ZephlyDelegate>> owner;
///   owner = std::make_shared<Application>(log, owner);
///   ...                                       // a call of didReceiveECG
///   EXPECT_THAT(log, stayedUntilTheEndOfItsCall());

#include <tests/support/recorded_events.h>

#include <gmock/gmock.h>

#include <memory>

template <class Delegate>
class Leaving : public Delegate {
 public:
  Leaving(recorded::Log& log, std::shared_ptr<Leaving>& owner) : log_(log), owner_(owner) {}
  Leaving(const Leaving&) = delete;
  Leaving& operator=(const Leaving&) = delete;
  ~Leaving() override { log_.emplace_back("destroyed"); }

 protected:
  void leave() {
    recorded::Log& log = log_;  // outlives this object
    owner_.reset();
    log.emplace_back("still in the call");
    ++touched_;  // a use after free if the caller does not own this object
  }

 private:
  recorded::Log& log_;
  std::shared_ptr<Leaving>& owner_;
  int touched_ = 0;
};

inline auto stayedUntilTheEndOfItsCall() {
  return testing::ElementsAre("still in the call", "destroyed");
}
