// SPDX-License-Identifier: MIT
#include <capture/reader.h>

#include <capture/bytes.h>
#include <capture/codec.h>
#include <tests/support/captures.h>
#include <tests/support/long_run.h>
#include <tests/support/raw_record.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::capture {
namespace {

using captures::Bytes;
using captures::ReadBack;
using captures::readBack;
using captures::recordOf;
using captures::ScratchDirectory;
using Kind = CaptureError::Kind;
using testing::HasSubstr;

// The records are in `all`, in the same order and without repetition.
bool isPartOf(const std::vector<Record>& some, const std::vector<Record>& all) {
  auto from = all.begin();
  for (const Record& record : some) {
    from = std::find(from, all.end(), record);
    if (from == all.end()) return false;
    ++from;
  }
  return true;
}

// A head with any numbers and a valid checksum.
Bytes headOf(std::uint16_t major, std::uint16_t minor, std::uint32_t length) {
  ByteSink sink;
  sink.raw(magic);
  sink.number(major);
  sink.number(minor);
  sink.number(length);
  sink.number(checksum(sink.bytes()));
  return sink.take();
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class ReaderTest : public testing::Test {
 protected:
  ReadBack read(const Bytes& bytes) const { return readBack(scratch_.file("c.zcap", bytes)); }

  // The error of a rejected file, which has no other.
  CaptureError refusal(const std::filesystem::path& file) const {
    const ReadBack back = readBack(file);
    EXPECT_FALSE(back.preamble);
    EXPECT_EQ(back.errors.size(), 1U);
    if (back.errors.empty()) return {Kind::cut, file, 0, "it was read"};
    return back.errors[0];
  }

  ScratchDirectory scratch_;
  std::vector<Record> records_ = captures::someOfEach();
};

TEST_F(ReaderTest, ReadsATruncatedFileUpToItsLastCompleteRecord) {
  const Bytes whole = captures::captureOf(records_);
  const std::vector<std::size_t> beginnings = captures::beginningsOf(records_);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const ReadBack back = read({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    if (size < beginnings[0]) {
      ASSERT_FALSE(back.preamble) << size;
      ASSERT_EQ(back.errors.size(), 1U) << size;
      continue;
    }
    const auto past = std::upper_bound(beginnings.begin(), beginnings.end(), size);
    const auto wholeRecords = static_cast<std::size_t>(past - beginnings.begin()) - 1;
    ASSERT_TRUE(back.preamble == captures::somePreamble());
    ASSERT_TRUE(back.records ==
                std::vector<Record>(records_.begin(),
                                    records_.begin() + static_cast<std::ptrdiff_t>(wholeRecords)))
        << size;
    ASSERT_FALSE(back.ended);
    if (size == beginnings[wholeRecords]) {
      ASSERT_TRUE(back.errors.empty()) << size;
      continue;
    }
    ASSERT_EQ(back.errors.size(), 1U) << size;
    ASSERT_EQ(back.errors[0].kind(), Kind::cut);
    ASSERT_EQ(back.errors[0].offset(), beginnings[wholeRecords]);
    ASSERT_THAT(back.errors[0].what(), HasSubstr("cut off in the middle of a record, " +
                                                 std::to_string(wholeRecords) + " whole record"));
  }
}

TEST_F(ReaderTest, AnyFlippedBitIsReportedAndTheRestIsRead) {
  const Bytes bytes = captures::captureOf(records_);
  const auto file = scratch_.file("c.zcap", bytes);
  std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
  const auto put = [&stream](std::size_t at, unsigned byte) {
    stream.seekp(static_cast<std::streamoff>(at));
    stream.put(static_cast<char>(byte));
    stream.flush();
  };
  const std::vector<std::size_t> beginnings = captures::beginningsOf(records_);
  for (std::size_t bit = 0; bit < bytes.size() * 8; bit += longRun<std::size_t>(1, 5)) {
    const std::size_t byte = bit / 8;
    put(byte, bytes[byte] ^ 1U << (bit % 8));
    const ReadBack back = readBack(file);
    put(byte, bytes[byte]);
    ASSERT_TRUE(stream.good());
    ASSERT_GE(back.errors.size(), 1U) << "bit " << bit;
    if (byte < beginnings[0]) {
      ASSERT_FALSE(back.preamble) << "bit " << bit;
      continue;
    }
    const auto past = std::upper_bound(beginnings.begin(), beginnings.end(), byte);
    const auto hit = past - beginnings.begin() - 1;
    std::vector<Record> others = records_;
    others.erase(others.begin() + hit);
    ASSERT_TRUE(back.records == others) << "bit " << bit;
    ASSERT_EQ(back.errors[0].kind(), Kind::damaged);
    ASSERT_EQ(back.errors[0].offset(), beginnings[static_cast<std::size_t>(hit)]) << "bit " << bit;
    ASSERT_THAT(back.errors[0].what(), HasSubstr("damaged record"));
  }
}

TEST_F(ReaderTest, ChangedBytesNeverLeadToAWrongRecord) {
  std::mt19937_64 random(77);
  const Bytes whole = captures::captureOf(records_);
  for (int round = 0; round < 3000; ++round) {
    Bytes bytes = whole;
    for (std::uint64_t change = 0; change <= random() % 8; ++change) {
      const auto at = static_cast<std::ptrdiff_t>(random() % bytes.size());
      const auto count =
          static_cast<std::ptrdiff_t>(random() % std::min<std::size_t>(bytes.size(), 100));
      const auto end = std::min(bytes.begin() + at + count, bytes.end());
      switch (random() % 4) {
        case 0:
          bytes[static_cast<std::size_t>(at)] = static_cast<std::uint8_t>(random());
          break;
        case 1:
          bytes.erase(bytes.begin() + at, end);
          break;
        case 2:
          std::fill(bytes.begin() + at, end, std::uint8_t{0});
          break;
        default:
          bytes.insert(bytes.begin() + at, whole.begin(), whole.begin() + count);
      }
      if (bytes.empty()) bytes.push_back(0);
    }
    const ReadBack back = read(bytes);
    ASSERT_TRUE(isPartOf(back.records, records_)) << "round " << round;
    ASSERT_TRUE(bytes == whole || !back.errors.empty() || back.records.size() < records_.size());
  }
}

TEST_F(ReaderTest, RandomBytesAreRefused) {
  std::mt19937_64 random(78);
  for (int round = 0; round < 300; ++round) {
    Bytes bytes(random() % 400 + 1);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    ASSERT_FALSE(read(bytes).preamble);
    // The same bytes after a valid head.
    ASSERT_TRUE(read(captures::captureOf({}) + bytes).records.empty());
  }
}

TEST_F(ReaderTest, RecordsWithRandomContentAreReadOrReported) {
  std::mt19937_64 random(79);
  for (int round = 0; round < 3000; ++round) {
    Bytes payload(random() % 120);
    // Small numbers make plausible lengths and flags.
    for (std::uint8_t& byte : payload) {
      byte = static_cast<std::uint8_t>(random() % (round % 2 == 0 ? 3 : 256));
    }
    const auto type = static_cast<std::uint32_t>(random() % 12);
    const ReadBack back = read(captures::captureOf({}) + recordOf(type, payload, 0));
    ASSERT_LE(back.records.size() + back.errors.size(), 1U);
    // What was read can be written.
    for (const Record& record : back.records) encodeRecord(record, 0);
  }
}

TEST_F(ReaderTest, LengthsBeyondTheFileReserveNoMemory) {
  const Bytes head = captures::captureOf({});
  Bytes stamp(24, 0);
  // A text, a list and bytes with a stated length of 4 GiB.
  const Bytes huge(4, 0xFF);
  const Bytes id(4, 1);
  for (const Bytes& payload :
       {stamp + id + Bytes{1} + huge, stamp + id + huge, stamp + id + id + Bytes{1} + huge}) {
    for (std::uint32_t type = 1; type <= 9; ++type) {
      const ReadBack back = read(head + recordOf(type, payload, 0));
      EXPECT_LE(back.records.size() + back.errors.size(), 1U);
    }
  }
  // A record of 4 GiB.
  ByteSink sink;
  sink.raw(recordMark);
  sink.number(std::uint32_t{9});
  sink.number(std::uint32_t{0xFFFFFFFF});
  sink.number(std::uint64_t{0});
  sink.number(checksum(sink.bytes()));
  const ReadBack back = read(head + sink.take() + recordOf(10, stamp, 0));
  EXPECT_EQ(back.records.size(), 1U);
  EXPECT_EQ(back.errors.size(), 1U);
  // A preamble of 4 GiB.
  EXPECT_THAT(refusal(scratch_.file("c.zcap", headOf(1, 0, 0xFFFFFFFF))).what(),
              HasSubstr("preamble too long"));
}

TEST_F(ReaderTest, InvalidContentIsReported) {
  const Bytes head = captures::captureOf({});
  const Bytes stamp(24, 0);
  const Bytes id(4, 1);
  // An invalid state, an invalid flag, and a payload that ends too early.
  const std::vector<std::pair<std::uint32_t, Bytes>> contents = {
      {1, stamp + Bytes{6}}, {5, stamp + id + Bytes{2}}, {3, stamp + Bytes{1, 0}}, {10, {}}};
  for (const auto& [type, payload] : contents) {
    const ReadBack back = read(head + recordOf(type, payload, 0) + encodeRecord(records_[0], 1));
    EXPECT_TRUE(back.records == std::vector<Record>{records_[0]}) << "type " << type;
    ASSERT_EQ(back.errors.size(), 1U) << "type " << type;
    EXPECT_THAT(back.errors[0].what(), HasSubstr("a record with invalid content"));
    EXPECT_EQ(back.errors[0].offset(), head.size());
  }
}

TEST_F(ReaderTest, RecordsOfUnknownTypesAreSkippedAndCounted) {
  const Bytes whole = captures::captureOf({records_[0]});
  const Bytes known = encodeRecord(records_[2], 2);
  const auto file = scratch_.file("c.zcap", whole + recordOf(4711, Bytes(99, 'x'), 1) + known);
  Reader reader(file);
  EXPECT_TRUE(reader.next() == records_[0]);
  EXPECT_TRUE(reader.next() == records_[2]);
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_EQ(reader.wholeRecords(), 3U);
  EXPECT_EQ(reader.unknownRecords(), 1U);
}

TEST_F(ReaderTest, AdditionalBytesOfALaterVersionAreIgnored) {
  const Bytes record = encodeRecord(records_[4], 0);
  const Bytes payload(record.begin() + recordHeaderSize, record.end() - checksumSize);
  const ReadBack back = read(captures::captureOf({}) + recordOf(3, payload + Bytes{1, 2, 3}, 0));
  EXPECT_TRUE(back.errors.empty());
  EXPECT_TRUE(back.records == std::vector<Record>{records_[4]});
}

TEST_F(ReaderTest, ATruncatedMisplacedRecordEndsTheFile) {
  const Bytes whole = captures::captureOf({}) + encodeRecord(records_[0], 0);
  Bytes repeated = encodeRecord(records_[0], 0);
  repeated.pop_back();
  Reader reader(scratch_.file("c.zcap", whole + repeated));
  EXPECT_TRUE(reader.next());
  try {
    reader.next();
    ADD_FAILURE() << "no error was thrown";
  } catch (const CaptureError& error) {
    EXPECT_EQ(error.kind(), Kind::cut);
    EXPECT_EQ(error.offset(), whole.size());
  }
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.offset(), whole.size());
}

TEST_F(ReaderTest, MissingRepeatedAndMisplacedRecordsAreReported) {
  const Bytes head = captures::captureOf({});
  const auto record = [this](std::size_t i) { return encodeRecord(records_[i], i); };

  const ReadBack missing = read(head + record(0) + record(3));
  EXPECT_EQ(missing.records.size(), 2U);
  ASSERT_EQ(missing.errors.size(), 1U);
  EXPECT_THAT(missing.errors[0].what(), HasSubstr("2 records missing here"));

  const ReadBack repeated = read(head + record(0) + record(0) + record(1));
  EXPECT_TRUE(repeated.records == (std::vector<Record>{records_[0], records_[1]}));
  ASSERT_EQ(repeated.errors.size(), 1U);
  EXPECT_THAT(repeated.errors[0].what(), HasSubstr("wrong place"));

  // The search for the next record skips one that has been read already.
  Bytes broken = record(2);
  broken[0] = 0;
  const ReadBack behind =
      read(head + record(0) + record(1) + broken + record(0) + record(3) + record(4));
  EXPECT_TRUE(behind.records ==
              (std::vector<Record>{records_[0], records_[1], records_[3], records_[4]}));
  ASSERT_EQ(behind.errors.size(), 1U);
  EXPECT_THAT(behind.errors[0].what(), HasSubstr("header is wrong), 1 record lost"));
}

TEST_F(ReaderTest, ReportsDataAfterTheEndRecord) {
  const Bytes whole = captures::captureOf(records_);
  const ReadBack back = read(whole + Bytes{0});
  EXPECT_TRUE(back.records == records_);
  EXPECT_TRUE(back.ended);
  ASSERT_EQ(back.errors.size(), 1U);
  EXPECT_EQ(back.errors[0].offset(), whole.size());
  EXPECT_THAT(back.errors[0].what(), HasSubstr("bytes behind the end record"));
}

TEST_F(ReaderTest, TheOffsetIsTheEndOfTheLastRecord) {
  const std::vector<std::size_t> beginnings = captures::beginningsOf(records_);
  Reader reader(scratch_.file("c.zcap", captures::captureOf(records_)));
  for (const std::size_t beginning : beginnings) {
    EXPECT_EQ(reader.offset(), beginning);
    reader.next();
  }
  EXPECT_TRUE(reader.ended());
}

TEST_F(ReaderTest, OtherFilesAreRefusedWithTheReason) {
  EXPECT_THAT(refusal(scratch_.file("empty", {})).what(), HasSubstr("at byte 0: an empty file"));
  EXPECT_THAT(refusal(scratch_.file("text", {'h', 'e', 'l', 'l', 'o'})).what(),
              HasSubstr("at byte 0: not a capture"));
  EXPECT_EQ(refusal(scratch_ / "absent").what(), (scratch_ / "absent").string() + ": no such file");
  EXPECT_EQ(refusal(scratch_.path()).what(),
            scratch_.path().string() + ": is a directory, not a capture");
  std::filesystem::create_symlink("loop", scratch_ / "loop");
  EXPECT_EQ(refusal(scratch_ / "loop").what(),
            (scratch_ / "loop").string() + ": Too many levels of symbolic links");
  EXPECT_THAT(refusal("/dev/null").what(), HasSubstr("not a regular file"));
  EXPECT_EQ(refusal(scratch_.path()).kind(), Kind::unusable);
}

TEST_F(ReaderTest, RefusesAnotherMajorVersionAndReadsALaterMinorOne) {
  EXPECT_THAT(refusal(scratch_.file("c.zcap", headOf(2, 0, 5) + Bytes(9, 0))).what(),
              HasSubstr("at byte 8: format version 2, this program reads version 1"));
  Bytes later = headOf(1, 9, 17);
  later = later + Bytes(17, 0);
  ByteSink sink;
  sink.raw(later);
  sink.number(checksum(later));
  EXPECT_TRUE(read(sink.take()).preamble);
}

TEST_F(ReaderTest, RefusesAPipeImmediately) {
  const auto pipe = scratch_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THAT(refusal(pipe).what(),
              HasSubstr("a pipe, not a regular file: save the capture to a file first"));
}

TEST_F(ReaderTest, TheMessageIsOneLineForAnyFileName) {
  const std::string message = refusal(scratch_ / "a\nb\x1B[2J").what();
  EXPECT_EQ(message.find('\n'), std::string::npos);
  EXPECT_EQ(message.find('\x1B'), std::string::npos);
}

}  // namespace
}  // namespace Zephly::capture
