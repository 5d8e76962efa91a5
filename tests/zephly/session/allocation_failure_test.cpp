// SPDX-License-Identifier: MIT
// Memory runs out while a wrapper or a session is created: the failure reaches the caller, and the
// parts already created are destroyed.

#include <tests/support/allocation_count.h>
#include <tests/support/fake_bluetooth.h>
#include <tests/support/recorded_events.h>
#include <tests/support/session_test_access.h>
#include <zephly/session/zephly.h>

#include <gtest/gtest.h>

#include <memory>
#include <new>

namespace {

// Calls `create` with its first, second, ... allocation failing, until it succeeds. Returns
// the number of failures.
template <class Create>
std::size_t failEachAllocationOnce(Create create) {
  for (std::size_t number = 1;; ++number) {
    bool failed = false;
    failAllocation(number);
    try {
      create();
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    failAllocation(0);
    if (!failed) return number - 1;
  }
}

TEST(AllocationFailureTest, ReachesTheCallerOfTheWrappersInit) {
  std::shared_ptr<::SignalProcessor> created;
  EXPECT_GT(failEachAllocationOnce([&created] { created = ::SignalProcessor::init(); }), 20u);
  ASSERT_NE(created, nullptr);
  EXPECT_FALSE(created->processLeadoffDetection(0));
}

TEST(AllocationFailureTest, ReachesTheCallerOfTheSessionsInit) {
  fake::World world;
  recorded::Log log;
  const auto application = std::make_shared<recorded::Application>(log);
  std::shared_ptr<::Zephly::Zephly> created;
  EXPECT_GT(failEachAllocationOnce([&] {
              EXPECT_TRUE(world.delegate.expired()) << "half a session lives on";
              created = ::Zephly::Zephly::init(application);
            }),
            20u);
  ASSERT_NE(created, nullptr);
  strapEvents(*created).didReceiveRespiration({1});
  EXPECT_EQ(log.size(), 2u);
  SessionTestAccess::release(*created);
}

}  // namespace
