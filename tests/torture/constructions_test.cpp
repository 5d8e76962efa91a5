// SPDX-License-Identifier: MIT
// Memory runs out while an object of the kit is constructed: the failure reaches the caller, and no
// memory is leaked. Intended leaks (the stages of complete chains, see RespirationFilter and
// ECGMultiBandpassFilter) are counted exactly.

#include <tests/support/fake_bluetooth.h>
#include <tests/support/recorded_events.h>
#include <tests/support/session_test_access.h>
#include <tests/torture/out_of_memory.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/body_temperature_estimator.h>
#include <zephly/dsp/butterworth_filter.h>
#include <zephly/dsp/cyclic_buffer.h>
#include <zephly/dsp/ecg_multi_bandpass_filter.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/dsp/respiration_filter.h>
#include <zephly/dsp/respiration_filter_helper.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/motion/motion_detector.h>
#include <zephly/phone/imu.h>
#include <zephly/protocol/utilities.h>
#include <zephly/session/signal_processor.h>
#include <zephly/zephly.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace torture {
namespace {

class MotionService : public CMMotionManager {};

class ConstructionsTest : public testing::TestWithParam<Shortage> {
 protected:
  // Constructs the object with each allocation failing in turn. `allocations` is the minimum number
  // of its allocations, so that the test fails when a construction no longer allocates.
  template <class Make>
  static void expectNothingLeft(const char* what, std::size_t allocations, Make make) {
    SCOPED_TRACE(what);
    make();  // objects created once per process
    const Sweep sweep = failEach(GetParam(), make);
    EXPECT_GE(sweep.failures, allocations);
    EXPECT_EQ(sweep.failures, sweep.passed.allocations) << "each failure stops the construction";
    EXPECT_EQ(sweep.kept, std::vector<std::ptrdiff_t>(sweep.failures, 0));
    EXPECT_EQ(sweep.passed.kept, 0);
  }
};

INSTANTIATE_TEST_SUITE_P(Shortages, ConstructionsTest,
                         testing::Values(Shortage::once, Shortage::forGood), nameOf);

TEST_P(ConstructionsTest, LeaksNothingOfAFilter) {
  expectNothingLeft("Filter", 0, [] { Filter filter; });
  expectNothingLeft("BiquadFilter", 2, [] { BiquadFilter filter(BiquadNotch, 0.1, 8, 5.0); });
  expectNothingLeft("MedianFilter", 2, [] { MedianFilter filter(300); });
  expectNothingLeft("NormalizationFilter", 1, [] { NormalizationFilter filter(5000, true); });
  expectNothingLeft("LowCutFilter", 3, [] { LowCutFilter filter(110, 0.004, 4); });
  expectNothingLeft("ButterworthFilter", 0,
                    [] { Zephly::ButterworthFilter filter(1.0F, 60, Zephly::Lowpass, 2.0F); });
  expectNothingLeft("MultiFilter", 9, [] {
    MultiFilter chain;
    chain.addFilter(new MedianFilter(5));
    chain.addFilter(new BiquadFilter(BiquadLowpass, 0.1, 2, 1.0));
    chain.addFilter(new Filter);
  });
}

TEST_P(ConstructionsTest, LeaksNothingOfADetector) {
  expectNothingLeft("LeadoffDetector", 1, [] { Zephly::LeadoffDetector detector; });
  expectNothingLeft("RespirationFilterHelper", 0,
                    [] { Zephly::RespirationFilterHelper helper(4.0F); });
  expectNothingLeft("BodyTemperatureEstimator", 2,
                    [] { Zephly::BodyTemperatureEstimator estimator; });
  expectNothingLeft("CyclicBuffer", 1, [] {
    Zephly::CyclicBuffer buffer;
    for (int i = 0; i < 20; ++i) buffer.push(1.0F);
  });
  expectNothingLeft("MotionDetector", 2, [] { Zephly::MotionDetector detector; });
}

// Releases the host's references to a session on destruction, however the attempt ended.
struct HostsHold {
  fake::World& world;
  ~HostsHold() {
    world.central.reset();
    world.delegate.reset();
  }
};

TEST_P(ConstructionsTest, LeaksNothingOfTheObjectsOfAConnection) {
  fake::World world;
  world.log.reserve(1000);
  recorded::Log log;
  const auto events = std::make_shared<recorded::PeripheralDelegate>(log);
  expectNothingLeft("CentralManager", 2, [&] {
    const HostsHold hold{world};
    const auto manager = CentralManager::init(events);
  });
  expectNothingLeft("ZephlyPeripheral", 2,
                    [&] { const auto handler = ZephlyPeripheral::init(events); });
  expectNothingLeft(
      "IMU", 2, [] { const auto imu = std::make_shared<IMU>(std::make_shared<MotionService>()); });
  expectNothingLeft("Utilities", 1, [] { const auto made = std::make_shared<::Utilities>(); });
}

// The chains -------------------------------------------------------------------------------------

template <class Chain>
Attempt whole() {
  return attempt(Shortage::once, 0, [] { Chain chain; });
}

template <class Chain>
void expectNothingLeftUnlessComplete(Shortage shortage) {
  const Sweep sweep = failEach(shortage, [] { Chain chain; });
  EXPECT_EQ(sweep.failures, sweep.passed.allocations);
  EXPECT_EQ(sweep.kept, std::vector<std::ptrdiff_t>(sweep.failures, 0));
  EXPECT_GT(sweep.passed.kept, 14) << "a complete chain lives on";
}

TEST_P(ConstructionsTest, LeaksNothingOfAnIncompleteChain) {
  expectNothingLeftUnlessComplete<Zephly::ECGMultiBandpassFilter>(GetParam());
  expectNothingLeftUnlessComplete<Zephly::RespirationFilter>(GetParam());
}

// The blocks that each failure leaves of an engine: first none, then those of the respiration
// chain, then those of both chains. This shows when in the order of construction the chains are
// complete.
std::vector<std::ptrdiff_t> keptByAnEngine() {
  const Attempt motion = attempt(Shortage::once, 0, [] { Zephly::MotionDetector made; });
  const Attempt leadoff = attempt(Shortage::once, 0, [] { Zephly::LeadoffDetector made; });
  const Attempt respiration = whole<Zephly::RespirationFilter>();
  const Attempt ecg = whole<Zephly::ECGMultiBandpassFilter>();
  const Attempt temperature =
      attempt(Shortage::once, 0, [] { Zephly::BodyTemperatureEstimator made; });
  std::vector<std::ptrdiff_t> kept(
      motion.allocations + leadoff.allocations + respiration.allocations, 0);
  kept.insert(kept.end(), ecg.allocations, respiration.kept);
  kept.insert(kept.end(), temperature.allocations, respiration.kept + ecg.kept);
  return kept;
}

std::ptrdiff_t keptByChains() {
  return whole<Zephly::RespirationFilter>().kept + whole<Zephly::ECGMultiBandpassFilter>().kept;
}

TEST_P(ConstructionsTest, KeepsOnlyCompleteChainsOfAnEngine) {
  const Sweep sweep = failEach(GetParam(), [] { Zephly::SignalProcessor engine; });
  EXPECT_EQ(sweep.kept, keptByAnEngine());
  EXPECT_EQ(sweep.passed.kept, keptByChains());
}

TEST_P(ConstructionsTest, KeepsOnlyCompleteChainsOfAWrapper) {
  const Sweep sweep = failEach(GetParam(), [] { const auto wrapper = ::SignalProcessor::init(); });
  std::vector<std::ptrdiff_t> expected = keptByAnEngine();
  expected.insert(expected.begin(), 2, 0);  // the wrapper, the engine's own block
  expected.push_back(keptByChains());       // the wrapper's reference count
  EXPECT_EQ(sweep.kept, expected);
  EXPECT_EQ(sweep.passed.kept, keptByChains());
}

// The session ------------------------------------------------------------------------------------

// Creates and destroys one session.
class OneSession {
 public:
  OneSession(fake::World& world, const std::shared_ptr<ZephlyDelegate>& application)
      : hold_{world}, session_(::Zephly::Zephly::init(application)) {}
  ~OneSession() { SessionTestAccess::release(*session_); }
  OneSession(const OneSession&) = delete;
  OneSession& operator=(const OneSession&) = delete;

 private:
  HostsHold hold_;
  std::shared_ptr<::Zephly::Zephly> session_;
};

TEST_P(ConstructionsTest, KeepsOnlyCompleteChainsOfASession) {
  fake::World world;
  world.log.reserve(1000);
  recorded::Log log;
  const auto application = std::make_shared<recorded::Application>(log);
  const Sweep sweep = failEach(GetParam(), [&] { OneSession session(world, application); });

  std::vector<std::ptrdiff_t> expected = keptByAnEngine();
  // Session, central manager (each with its reference count), the host's log and central, the
  // wrapper, the engine's own block.
  const Attempt whole = sweep.passed;
  const std::size_t before = whole.allocations - expected.size() - 1;
  expected.insert(expected.begin(), before, 0);
  expected.push_back(keptByChains());  // the wrapper's reference count, allocated last
  EXPECT_GE(before, 6U);
  EXPECT_EQ(sweep.kept, expected);
  EXPECT_EQ(whole.kept, keptByChains());
}

TEST_P(ConstructionsTest, DoesNotAffectTheNextSession) {
  fake::World world;
  recorded::Log log;
  const auto application = std::make_shared<recorded::Application>(log);
  for (const std::size_t number : {1U, 3U, 5U, 20U, 40U, 50U}) {
    EXPECT_TRUE(
        attempt(GetParam(), number, [&] { OneSession session(world, application); }).failed);
    const auto session = ::Zephly::Zephly::init(application);
    log.clear();
    strapEvents(*session).didReceiveRespiration({0.25F});
    EXPECT_EQ(log.size(), 2U) << "lead-off, and a sample";
    SessionTestAccess::release(*session);
  }
}

}  // namespace
}  // namespace torture
