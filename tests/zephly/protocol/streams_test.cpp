// SPDX-License-Identifier: MIT
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace Zephly {
namespace {

using namespace std::chrono_literals;

// The rows of a Markdown page's tables, as cells without blanks around them.
std::vector<std::vector<std::string>> tableRows(const char* page) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream file(page);
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("|")) continue;
    std::vector<std::string> cells;
    std::istringstream columns(line.substr(1));
    for (std::string cell; std::getline(columns, cell, '|');) {
      const std::size_t first = cell.find_first_not_of(' ');
      const std::size_t last = cell.find_last_not_of(' ');
      cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    rows.push_back(cells);
  }
  return rows;
}

TEST(StreamsTest, EveryRowIsFoundByItsStreamAndByItsName) {
  for (std::size_t i = 0; i < allStreams.size(); ++i) {
    EXPECT_EQ(static_cast<std::size_t>(allStreams[i]), i);
    EXPECT_EQ(streamInfo(allStreams[i]).stream, allStreams[i]);
    EXPECT_EQ(streamNamed(streamInfo(allStreams[i]).name), allStreams[i]);
  }
  EXPECT_EQ(streamNamed("ECG"), std::nullopt);
}

TEST(StreamsTest, EveryStreamIsSubscribedToOnce) {
  const std::set<Stream> subscribed(subscriptionOrder.begin(), subscriptionOrder.end());
  EXPECT_EQ(subscribed.size(), allStreams.size());
}

TEST(StreamsTest, NamesAndIdentifiersDiffer) {
  std::set<std::string_view> names;
  std::set<std::string_view> identifiers;
  for (const StreamInfo& info : streamTable) {
    names.insert(info.name);
    identifiers.insert(info.characteristic);
    EXPECT_EQ(info.characteristic.size(), 36U) << info.name;
    EXPECT_FALSE(info.channels.empty()) << info.name;
  }
  EXPECT_EQ(names.size(), streamTable.size());
  EXPECT_EQ(identifiers.size(), streamTable.size());
}

TEST(StreamsTest, AFrameIntervalIsThatOfItsSamplesOrOfItsReports) {
  EXPECT_EQ(frameInterval(Stream::ecg), 12ms);
  EXPECT_EQ(frameInterval(Stream::motion), 33'333'333ns);
  EXPECT_EQ(frameInterval(Stream::temperature), 1s);
  for (const StreamInfo& info : streamTable) {
    EXPECT_EQ(info.rate == 0, info.reportInterval > 0s) << info.name;
    EXPECT_GT(frameInterval(info.stream), 0s) << info.name;
  }
}

TEST(StreamsTest, AStreamHasAPlaceForOneValue) {
  PerStream<int> counts{};
  ++counts[Stream::motion];
  for (const Stream stream : allStreams) EXPECT_EQ(counts[stream], stream == Stream::motion);
}

// The page's first table: name, size of a frame, rate. Its second one: identifiers.
TEST(StreamsTest, ThePageShowsTheTable) {
  std::map<std::string, std::vector<std::string>> streams;
  std::map<std::string, std::string> identifiers;
  for (const auto& cells : tableRows(ZEPHLY_STREAMS_PAGE)) {
    const std::string& first = cells.front();
    const bool link = first.starts_with('[');
    const std::string title = link ? first.substr(1, first.find(']') - 1) : first;
    if (cells.size() == 2) {
      identifiers[title] = cells[1];
    } else if (link && cells.size() > 2) {
      streams[title] = cells;
    }
  }
  for (const StreamInfo& info : streamTable) {
    const std::string title(info.title);
    ASSERT_TRUE(streams.contains(title)) << title;
    EXPECT_THAT(streams[title][1],
                testing::StartsWith(std::to_string(info.bytesPerFrame) + " bytes"));
    const std::string rate = info.rate > 0
                                 ? std::to_string(info.rate)
                                 : "every " + std::to_string(info.reportInterval / 1s) + " s";
    EXPECT_THAT(streams[title][2], testing::HasSubstr(rate)) << title;
    EXPECT_EQ(identifiers[title], "`" + std::string(info.characteristic) + "`");
  }
}

}  // namespace
}  // namespace Zephly
