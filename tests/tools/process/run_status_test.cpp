// SPDX-License-Identifier: MIT
#include <tools/process/run_status.h>

#include <gtest/gtest.h>

#include <chrono>

namespace Zephly::processing {
namespace {

using namespace std::chrono_literals;

TEST(RunStatusTest, ShowsCountBytesRateAndTimeLeft) {
  EXPECT_EQ(statusText(3, 10, 1'000'000'000, 200'000'000, 4'200'000'000, 10s),
            "3 of 10 captures, 1.2 GB of 4.2 GB, 100.0 MB/s, 0:30 left");
}

TEST(RunStatusTest, HasNoRateBeforeThereIsOne) {
  EXPECT_EQ(statusText(0, 2, 0, 0, 5000, 10s), "0 of 2 captures, 0 B of 5.0 kB");
  EXPECT_EQ(statusText(0, 2, 100, 0, 5000, 500ms), "0 of 2 captures, 100 B of 5.0 kB");
}

}  // namespace
}  // namespace Zephly::processing
