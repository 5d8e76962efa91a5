#include <platforms/foundation/data.h>
#include <platforms/foundation/error.h>

#include <gtest/gtest.h>

#include <array>

namespace {

using Zephly::platforms::Data;
using Zephly::platforms::Error;

TEST(Data, CopiesNoMoreThanItHas) {
  const auto data = Data::of({1, 2, 3});
  std::array<std::uint8_t, 5> buffer{9, 9, 9, 9, 9};
  data->getBytes(buffer.data(), buffer.size());
  EXPECT_EQ(data->length(), 3U);
  EXPECT_EQ(buffer, (std::array<std::uint8_t, 5>{1, 2, 3, 9, 9}));
}

TEST(Data, CopiesNoMoreThanIsAsked) {
  const auto data = Data::of({1, 2, 3});
  std::array<std::uint8_t, 3> buffer{9, 9, 9};
  data->getBytes(buffer.data(), 2);
  EXPECT_EQ(buffer, (std::array<std::uint8_t, 3>{1, 2, 9}));
}

TEST(Data, MayBeEmpty) {
  const auto data = Data::of({});
  std::uint8_t byte = 9;
  data->getBytes(&byte, 1);
  EXPECT_EQ(data->length(), 0U);
  EXPECT_EQ(byte, 9);
}

TEST(Error, IsItsText) {
  EXPECT_EQ(Error::of("The device is gone.")->localizedDescription(), "The device is gone.");
}

}  // namespace
