// SPDX-License-Identifier: MIT
#include <zephly/dsp/cyclic_buffer.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

using Zephly::CyclicBuffer;

TEST(CyclicBufferTest, KeepsTheNewestValuesOldestFirst) {
  CyclicBuffer buffer{3, {}};
  for (const float value : {1.0F, 2.0F, 3.0F}) buffer.push(value);
  EXPECT_EQ(buffer.values, (std::vector<float>{1, 2, 3}));
  buffer.push(4);
  EXPECT_EQ(buffer.values, (std::vector<float>{2, 3, 4}));
  buffer.push(5);
  EXPECT_EQ(buffer.values, (std::vector<float>{3, 4, 5}));
}

TEST(CyclicBufferTest, DropsOneValueAPushAtMost) {
  CyclicBuffer buffer{2, {1, 2, 3, 4}};
  buffer.push(5);
  EXPECT_EQ(buffer.values, (std::vector<float>{2, 3, 4, 5}));
}

TEST(CyclicBufferTest, HoldsNothingWithoutCapacity) {
  for (const int capacity : {0, -1}) {
    CyclicBuffer buffer{capacity, {}};
    buffer.push(1);
    EXPECT_TRUE(buffer.values.empty());
  }
}

}  // namespace
