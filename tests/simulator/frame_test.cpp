#include <simulator/frame.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zephly::simulator {
namespace {

TEST(StreamTest, EachStreamHasItsNameItsCharacteristicAndItsSamples) {
  struct Expected {
    Stream stream;
    std::string name;
    std::string identifier;
    int samples;
  };
  const std::vector<Expected> all = {
      {Stream::temperature, "temperature", "45366E80-CF3A-11E1-9AB4-0002A5D5C51B", 1},
      {Stream::ecg, "ecg", "46366E80-CF3A-11E1-9AB4-0002A5D5C51B", 6},
      {Stream::battery, "battery", "47366E80-CF3A-11E1-9AB4-0002A5D5C51B", 1},
      {Stream::respiration, "respiration", "48366E80-CF3A-11E1-9AB4-0002A5D5C51B", 6},
      {Stream::motion, "motion", "49366E80-CF3A-11E1-9AB4-0002A5D5C51B", 1},
  };
  ASSERT_EQ(all.size(), allStreams.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].stream, allStreams.at(i));
    EXPECT_EQ(streamName(all[i].stream), all[i].name);
    EXPECT_EQ(characteristicUUID(all[i].stream).UUIDString(), all[i].identifier);
    EXPECT_EQ(samplesPerFrame(all[i].stream), all[i].samples);
  }
}

}  // namespace
}  // namespace Zephly::simulator
