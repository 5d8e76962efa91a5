// SPDX-License-Identifier: MIT
#include <capture/chain_writer.h>

#include <capture/codec.h>
#include <capture/parts.h>
#include <capture/text.h>

#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <variant>

namespace Zephly::capture {

namespace {

// Each file has a thread and two descriptors. A disk that fails so often is of no use.
constexpr std::size_t mostFiles = 100;

}  // namespace

ChainWriter::ChainWriter(std::filesystem::path path, Preamble preamble, ChainOptions options)
    : path_(std::move(path)), preamble_(std::move(preamble)), options_(std::move(options)) {
  writers_.push_back(std::make_unique<Writer>(path_, preamble_, options_.writer));
  files_.push_back(path_);
}

void ChainWriter::append(const Record& record) {
  if (waiting_) {
    keep(record);
  } else if (writers_.back()->append(record)) {
    // Until the first file replaces an old one, it may have to be written again.
    if (hasKeptOldFile()) {
      early_.push_back(record);
    } else {
      early_.clear();
    }
    noteWritten(record);
  } else {
    trouble_ = writers_.back()->error().value_or("");
    waiting_ = true;
    if (hasKeptOldFile()) beginAgain();
    keep(record);
    tryToContinue();
  }
}

// The old file is still there, so no other file could continue the first one.
void ChainWriter::beginAgain() {
  writers_.front()->discard();
  writers_.clear();
  files_.clear();
  notedBefore_ = early_.size();
  for (const Record& record : std::exchange(early_, {})) keep(record);
}

void ChainWriter::noteWritten(const Record& record) {
  recordedUntil_ = record.stamp.monotonic;
  options_.written(record);
}

void ChainWriter::keep(const Record& record) {
  std::size_t size = 0;
  try {
    size = encodeRecord(record, 0).size();
  } catch (const std::logic_error&) {
    // No file can hold it.
    ++lost_;
    ++lostSinceLastFile_;
    return;
  }
  const bool isNotification = std::holds_alternative<Value>(record.what);
  const std::size_t most =
      isNotification ? options_.mostBytesInMemory : 2 * options_.mostBytesInMemory;
  if (overflowed_ || keptBytes_ + size > most) {
    overflowed_ = overflowed_ || !isNotification;
    ++lost_;
    ++lostSinceLastFile_;
    return;
  }
  keptBytes_ += size;
  kept_.push_back(record);
}

std::filesystem::path ChainWriter::nextName() const {
  if (writers_.empty()) return path_;
  auto number = static_cast<std::uint32_t>(writers_.size()) + 1;
  std::error_code absent;
  while (std::filesystem::exists(std::filesystem::symlink_status(partOf(path_, number), absent))) {
    ++number;
  }
  return partOf(path_, number);
}

// With all records that are in memory; empty when not all of them can be written.
std::unique_ptr<Writer> ChainWriter::openPart(const std::filesystem::path& path) {
  Preamble preamble = preamble_;
  WriterOptions options = options_.writer;
  if (!writers_.empty()) {
    options.overwrite = false;
    preamble.continues = {.part = static_cast<std::uint32_t>(writers_.size()) + 1,
                          .lost = lostSinceLastFile_};
  }
  std::unique_ptr<Writer> writer;
  try {
    writer = std::make_unique<Writer>(path, preamble, options);
    for (const Record& record : kept_) {
      if (writer->append(record)) continue;
      trouble_ = writer->error().value_or("");
      writer->discard();
      return nullptr;
    }
    return writer;
  } catch (const std::exception& error) {
    // A file with a part of the records would be taken for the continuation.
    if (writer) writer->discard();
    const bool noMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    trouble_ = noMemory ? "not enough memory" : error.what();
    return nullptr;
  }
}

void ChainWriter::tryToContinue() {
  if (!waiting_ || overflowed_ || writers_.size() >= mostFiles) return;
  const std::filesystem::path path = nextName();
  auto writer = openPart(path);
  if (!writer) return;
  writers_.push_back(std::move(writer));
  files_.push_back(path);
  for (std::size_t i = std::exchange(notedBefore_, 0); i < kept_.size(); ++i) noteWritten(kept_[i]);
  if (hasKeptOldFile()) early_ = kept_;
  kept_.clear();
  keptBytes_ = 0;
  lostSinceLastFile_ = 0;
  waiting_ = false;
}

std::optional<std::string> ChainWriter::close() {
  tryToContinue();
  lost_ += kept_.size();
  kept_.clear();
  // The errors of the others led to the files that follow them.
  bool safe = true;
  for (const auto& writer : writers_) {
    const auto error = writer->close();
    const bool isLast = writer == writers_.back();
    if (!error || (writer->isSynchronized() && (waiting_ || !isLast))) continue;
    safe = false;
    trouble_ = *error;
  }
  if (lost_ > 0) {
    return trouble_ + "; recorded until " + clockText(recordedUntil_) + ", " +
           std::to_string(lost_) + (lost_ == 1 ? " record" : " records") + " lost";
  }
  if (!safe) return trouble_ + "; a part of the recording may not be on the disk";
  return std::nullopt;
}

std::uint64_t ChainWriter::records() const {
  std::uint64_t sum = 0;
  for (const auto& writer : writers_) sum += writer->records();
  return sum;
}

std::uint64_t ChainWriter::bytes() const {
  std::uint64_t sum = 0;
  for (const auto& writer : writers_) sum += writer->bytes();
  return sum;
}

}  // namespace Zephly::capture
