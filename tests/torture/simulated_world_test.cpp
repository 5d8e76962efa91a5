// SPDX-License-Identifier: MIT
// Ten seconds of a session on the simulated host in which one allocation fails, in the kit, the
// radio, the strap or the scheduler. The host then guarantees little: the exception leaves the
// scheduler's step, the event that threw is consumed, and the strap may stop sending (when it could
// not schedule its next frame). The test checks that nothing else breaks: it runs for another
// second, destroys everything, and no block remains beyond those of a run without failures.
//
// The failing allocations are all of the construction, of the connection and of the first frames,
// then every n-th (n is prime, so that all kinds occur). A sanitized build tests fewer, because it
// is several times slower.

#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/long_run.h>
#include <tests/support/session_test_access.h>
#include <tests/torture/out_of_memory.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/session/zephly.h>

#include <bench/counting_application.h>
#include <bench/null_buffer.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>

namespace torture {
namespace {

using namespace std::chrono_literals;
namespace simulated = Zephly::simulated;
namespace simulator = Zephly::simulator;

constexpr std::size_t allUpTo = longRun(1000, 300);
constexpr std::size_t stride = longRun(101, 1009);

class World {
 public:
  explicit World(const std::shared_ptr<bench::CountingApplication>& application)
      : device_(radio_.addDevice({.name = std::string(peripheralName)})),
        strap_(withProfile(device_), source_) {
    strap_.loseLinkAt(5s, "The connection has timed out unexpectedly.", 1s);
    session_ = ::Zephly::Zephly::init(application);
    session_->startWorkoutDetection(application);
  }
  ~World() {
    if (session_) SessionTestAccess::release(*session_);
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  simulated::Scheduler& scheduler() { return scheduler_; }

 private:
  static simulated::Device& withProfile(simulated::Device& device) {
    simulated::addStrapProfile(device);
    return device;
  }

  simulated::Scheduler scheduler_;
  simulated::Radio radio_{scheduler_};
  simulated::Device& device_;
  simulator::Strap source_{{.seed = 3}};
  simulated::StrapDevice strap_;
  std::shared_ptr<::Zephly::Zephly> session_;
};

struct Visit {
  Attempt attempt;
  std::ptrdiff_t kept = 0;  // after everything was destroyed
  std::uint64_t calls = 0;
};

// One run in which the allocation of that number fails; 0: none.
Visit take(Shortage shortage, std::size_t number) {
  const auto application = std::make_shared<bench::CountingApplication>();
  Visit visit;
  const std::size_t before = liveAllocationCount();
  {
    std::optional<World> world;
    visit.attempt = attempt(shortage, number, [&] {
      world.emplace(application);
      world->scheduler().advance(10s);
    });
    if (world && visit.attempt.failed) world->scheduler().advance(1s);
  }
  visit.kept =
      static_cast<std::ptrdiff_t>(liveAllocationCount()) - static_cast<std::ptrdiff_t>(before);
  visit.calls = application->calls;
  return visit;
}

class SimulatedWorldTest : public testing::TestWithParam<Shortage> {
 protected:
  const bench::SilentOutput silent_;
  const FakeProcessorClock clock_;
};

INSTANTIATE_TEST_SUITE_P(Shortages, SimulatedWorldTest,
                         testing::Values(Shortage::once, Shortage::forGood), nameOf);

TEST_P(SimulatedWorldTest, EverythingCanBeDestroyed) {
  take(GetParam(), 0);  // objects created once per process
  const Visit calm = take(GetParam(), 0);
  EXPECT_GT(calm.calls, 8000U);
  EXPECT_GT(calm.attempt.allocations, allUpTo);

  // The respiration chain is complete before the ECG chain; see constructions_test.cpp.
  std::set<std::ptrdiff_t> left;
  std::uint64_t tried = 0;
  const std::size_t last = calm.attempt.allocations;
  for (std::size_t number = 1; number <= last; number += number < allUpTo ? 1 : stride) {
    const Visit visit = take(GetParam(), number);
    EXPECT_TRUE(visit.attempt.failed) << "allocation " << number;
    left.insert(visit.kept);
    ++tried;
  }
  EXPECT_GT(tried, allUpTo);
  // No block; the respiration chain of an incomplete engine; both chains.
  EXPECT_EQ(left.size(), 3U);
  EXPECT_TRUE(left.contains(0));
  EXPECT_EQ(*left.rbegin(), calm.kept);
}

}  // namespace
}  // namespace torture
