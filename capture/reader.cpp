// SPDX-License-Identifier: MIT
#include <capture/reader.h>

#include <capture/capture_error.h>
#include <capture/capture_file.h>
#include <capture/codec.h>
#include <capture/parts.h>

#include <algorithm>
#include <span>
#include <vector>

namespace Zephly::capture {

namespace {

using Kind = CaptureError::Kind;

std::uint32_t checksumAt(std::span<const std::uint8_t> bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < checksumSize; ++i) {
    value |= static_cast<std::uint32_t>(bytes[i]) << (8 * i);
  }
  return value;
}

// The last bytes are the checksum of those before them.
bool isWhole(std::span<const std::uint8_t> bytes) {
  const auto content = bytes.first(bytes.size() - checksumSize);
  return checksum(content) == checksumAt(bytes.last(checksumSize));
}

std::string counted(std::uint64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

Reader::Reader(const std::filesystem::path& path)
    : path_(path), file_(std::make_unique<CaptureFile>(path)) {
  readHead();
}

Reader::~Reader() = default;

void Reader::readHead() {
  const auto refuse = [this](Kind kind, std::uint64_t offset, const std::string& what) {
    throw CaptureError(kind, file_->path(), offset, what);
  };
  const auto bytes = file_->at(0, headSize);
  if (bytes.empty()) refuse(Kind::unusable, 0, "an empty file, not a capture");
  if (!beginsLikeCapture(bytes)) refuse(Kind::unusable, 0, "not a capture");
  if (bytes.size() < headSize) refuse(Kind::cut, bytes.size(), "cut off in the head");
  const auto head = decodeHead(bytes);
  if (!head) refuse(Kind::damaged, 0, "damaged head (checksum is wrong)");
  if (head->major != majorVersion) {
    refuse(Kind::unusable, magic.size(),
           "format version " + std::to_string(head->major) + ", this program reads version " +
               std::to_string(majorVersion));
  }
  if (head->length > longestPreamble) refuse(Kind::damaged, magic.size() + 4, "preamble too long");
  const std::size_t size = headSize + head->length + checksumSize;
  const auto whole = file_->at(0, size);
  if (whole.size() < size) refuse(Kind::cut, whole.size(), "cut off in the preamble");
  if (!isWhole(whole)) refuse(Kind::damaged, headSize, "damaged preamble (checksum is wrong)");
  const auto preamble = decodePreamble(head->minor, whole.subspan(headSize, head->length));
  if (!preamble) refuse(Kind::damaged, headSize, "invalid preamble");
  preamble_ = *preamble;
  offset_ = size;
}

std::optional<Record> Reader::next() {
  do {
    if (auto record = nextOfFile()) return record;
  } while (!ended_ && openNextPart());
  return std::nullopt;
}

std::unique_ptr<Reader> Reader::partAt(const std::filesystem::path& path) const {
  // A file that was given alone, although it is not the first one.
  if (preamble_.continues) return nullptr;
  try {
    auto part = std::make_unique<Reader>(path);
    if (belongTogether(preamble_, part->preamble_)) return part;
  } catch (const CaptureError&) {
    // Another file of a similar name.
  }
  return nullptr;
}

bool Reader::openNextPart() {
  for (const std::filesystem::path& path : existingParts(path_)) {
    const std::unique_ptr<Reader> next = partAt(path);
    if (!next || next->preamble_.continues->part != parts_ + 1) continue;
    file_ = std::move(next->file_);
    offset_ = next->offset_;
    expected_ = 0;
    over_ = false;
    ++parts_;
    lostRecords_ += next->preamble_.continues->lost;
    return true;
  }
  return false;
}

const std::filesystem::path& Reader::file() const { return file_->path(); }

std::vector<std::filesystem::path> Reader::files() const {
  std::vector<std::filesystem::path> files = {path_};
  for (const std::filesystem::path& path : existingParts(path_)) {
    if (partAt(path)) files.push_back(path);
  }
  return files;
}

std::optional<Record> Reader::nextOfFile() {
  while (!over_) {
    if (file_->at(offset_, 1).empty()) {
      over_ = true;
      break;
    }
    if (ended_) {
      over_ = true;
      damaged(offset_, "bytes behind the end record");
    }
    const RecordHeader header = readHeader();
    checkSequence(header);
    if (auto record = readRecord(header)) return record;
  }
  return std::nullopt;
}

RecordHeader Reader::readHeader() {
  const auto bytes = file_->at(offset_, recordHeaderSize);
  if (bytes.size() == recordHeaderSize) {
    if (const auto header = decodeRecordHeader(bytes)) return *header;
    leaveDamage();
  }
  cut(offset_);
}

void Reader::checkSequence(const RecordHeader& header) {
  if (header.sequence == expected_) return;
  if (header.sequence > expected_) {
    const std::uint64_t missing = header.sequence - expected_;
    expected_ = header.sequence;
    damaged(offset_, counted(missing, "record") + " missing here");
  }
  const std::uint64_t offset = offset_;
  const std::size_t size = recordHeaderSize + header.length + checksumSize;
  if (file_->at(offset, size).size() < size) cut(offset);
  offset_ += size;
  damaged(offset, "a record in the wrong place (number " + std::to_string(header.sequence) +
                      " where " + std::to_string(expected_) + " is expected)");
}

std::optional<Record> Reader::readRecord(const RecordHeader& header) {
  const std::uint64_t offset = offset_;
  const std::size_t size = recordHeaderSize + header.length + checksumSize;
  const auto bytes = file_->at(offset, size);
  if (bytes.size() < size) cut(offset);
  // The header is valid, so the next record begins behind the length that it states.
  offset_ += size;
  ++expected_;
  if (!isWhole(bytes)) damaged(offset, "damaged record (checksum is wrong), 1 record lost");
  ++wholeRecords_;
  if (!isKnown(header.type)) {
    ++unknownRecords_;
    return std::nullopt;
  }
  auto record = decodePayload(header.type, bytes.subspan(recordHeaderSize, header.length));
  if (!record) damaged(offset, "a record with invalid content");
  ended_ = std::holds_alternative<Ended>(record->what);
  return record;
}

// The header is damaged, so its length is unknown: searches byte by byte for the next valid header.
// One with an earlier sequence number is skipped: it may lie inside a payload, or be a copy.
void Reader::leaveDamage() {
  const std::uint64_t begin = offset_;
  for (++offset_;; ++offset_) {
    const auto bytes = file_->at(offset_, recordHeaderSize);
    if (bytes.size() < recordHeaderSize) break;
    const auto header = decodeRecordHeader(bytes);
    if (!header || header->sequence < expected_) continue;
    const std::uint64_t lost = header->sequence - expected_;
    expected_ = header->sequence;
    damaged(begin, "damaged record (header is wrong), " + counted(lost, "record") + " lost");
  }
  over_ = true;
  // The rest is shorter than a header.
  offset_ += file_->at(offset_, recordHeaderSize).size();
  damaged(begin, "damaged record (header is wrong), no whole record in the " +
                     counted(offset_ - begin, "byte") + " up to the end");
}

void Reader::cut(std::uint64_t offset) {
  over_ = true;
  throw CaptureError(
      Kind::cut, file_->path(), offset,
      "cut off in the middle of a record, " + counted(wholeRecords_, "whole record") + " read");
}

void Reader::damaged(std::uint64_t offset, const std::string& what) const {
  throw CaptureError(Kind::damaged, file_->path(), offset, what);
}

}  // namespace Zephly::capture
