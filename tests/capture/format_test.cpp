// SPDX-License-Identifier: MIT
#include <capture/codec.h>
#include <capture/format.h>
#include <capture/writer.h>
#include <tests/support/captures.h>
#include <boost/crc.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::capture {
namespace {

using captures::ReadBack;
using captures::ScratchDirectory;

// The check value published with the parameters of CRC-32C.
TEST(FormatTest, ChecksumIsCrc32c) {
  const std::string_view text = "123456789";
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  EXPECT_EQ(checksum(bytes), 0xE3069283U);
  EXPECT_EQ(checksum({}), 0U);
}

TEST(FormatTest, ChecksumIsThatOfBoostForEveryLength) {
  std::mt19937_64 random(7);
  std::vector<std::uint8_t> bytes;
  for (int length = 0; length < 200; ++length) {
    boost::crc_optimal<32, 0x1EDC6F41, 0xFFFFFFFF, 0xFFFFFFFF, true, true> crc;
    crc.process_bytes(bytes.data(), bytes.size());
    ASSERT_EQ(checksum(bytes), crc.checksum()) << length;
    bytes.push_back(static_cast<std::uint8_t>(random()));
  }
}

TEST(FormatTest, RecordsOfEveryKindAreReadAsTheyWereWritten) {
  const ScratchDirectory scratch;
  const std::vector<Record> records = captures::someOfEach();
  {
    Writer writer(scratch / "c.zcap", captures::somePreamble());
    for (const Record& record : records) EXPECT_TRUE(writer.append(record));
    EXPECT_EQ(writer.close(), std::nullopt);
    EXPECT_EQ(writer.records(), records.size());
    EXPECT_EQ(writer.bytes(), std::filesystem::file_size(scratch / "c.zcap"));
  }
  const ReadBack back = captures::readBack(scratch / "c.zcap");
  EXPECT_TRUE(back.preamble == captures::somePreamble());
  EXPECT_TRUE(back.records == records);
  EXPECT_TRUE(back.errors.empty());
  EXPECT_TRUE(back.ended);
}

TEST(FormatTest, RandomRecordsAreReadAsTheyWereWritten) {
  std::mt19937_64 random(20'261'121);
  const ScratchDirectory scratch;
  for (int round = 0; round < 20; ++round) {
    const std::vector<Record> records = captures::randomRecords(random, 200);
    const ReadBack back = captures::readBack(scratch.file("c.zcap", captures::captureOf(records)));
    ASSERT_TRUE(back.records == records) << "round " << round;
    ASSERT_TRUE(back.errors.empty());
    ASSERT_FALSE(back.ended);
  }
}

TEST(FormatTest, TheLongestValueIsAcceptedAndALongerOneRefused) {
  const std::size_t around =
      encodeRecord({{}, Value{.bytes = std::vector<std::uint8_t>()}}, 0).size() - recordHeaderSize -
      checksumSize;
  Record longest{{}, Value{.bytes = std::vector<std::uint8_t>(longestPayload - around, 7)}};
  const ScratchDirectory scratch;
  const ReadBack back =
      captures::readBack(scratch.file("c.zcap", captures::captureOf({longest, longest})));
  EXPECT_TRUE((back.records == std::vector<Record>{longest, longest}));
  EXPECT_TRUE(back.errors.empty());
  std::get<Value>(longest.what).bytes->push_back(7);
  EXPECT_THROW(encodeRecord(longest, 0), std::length_error);
}

TEST(FormatTest, AUuidIsStoredInItsLongForm) {
  const Record record{{}, ServicesDiscovered{1, {{1, "180f", ""}}, {}}};
  const ScratchDirectory scratch;
  const ReadBack back = captures::readBack(scratch.file("c.zcap", captures::captureOf({record})));
  ASSERT_EQ(back.records.size(), 1U);
  EXPECT_EQ(std::get<ServicesDiscovered>(back.records[0].what).services[0].UUID,
            "0000180F-0000-1000-8000-00805F9B34FB");
  EXPECT_THROW(encodeRecord({{}, ServicesDiscovered{1, {{1, "nonsense", ""}}, {}}}, 0),
               std::invalid_argument);
}

// The bytes of the worked example, as the page on the format shows them.
captures::Bytes documentedBytes() {
  std::ifstream page(ZEPHLY_SOURCE "/docs/capture-format.md");
  captures::Bytes bytes;
  std::string line;
  bool example = false;
  while (std::getline(page, line)) {
    if (line == "```text" || line == "```") {
      example = line == "```text";
      continue;
    }
    if (!example) continue;
    std::istringstream words(line);
    std::string word;
    words >> word;
    EXPECT_EQ(std::stoul(word, nullptr, 16), bytes.size());
    while (words >> word) bytes.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
  }
  return bytes;
}

TEST(FormatTest, WritesAndReadsTheDocumentedExample) {
  using namespace std::chrono_literals;
  const Preamble preamble{"zephly 1.0", "seed 7", true, 1'800'000'000s};
  const std::vector<Record> records = {
      {{1500ms, 1'800'000'001'500ms, 42}, Value{1, 4, {{0x20, 0x03, 0x01}}, {}}},
      {{2s, 1'800'000'002s, 43}, Ended{}}};
  const ScratchDirectory scratch;
  {
    Writer writer(scratch / "written.zcap", preamble);
    for (const Record& record : records) writer.append(record);
  }
  const captures::Bytes documented = documentedBytes();
  EXPECT_EQ(captures::contentOf(scratch / "written.zcap"), documented);

  const ReadBack back = captures::readBack(scratch.file("documented.zcap", documented));
  EXPECT_TRUE(back.preamble == preamble);
  EXPECT_TRUE(back.records == records);
  EXPECT_TRUE(back.errors.empty());
  EXPECT_TRUE(back.ended);
}

}  // namespace
}  // namespace Zephly::capture
