// SPDX-License-Identifier: MIT
#include <tools/export/edf_discontinuous.h>

#include <hosts/main_queue/file_descriptor.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace Zephly::exporting {

namespace {

// The header of EDF: 256 bytes of the file, then 256 bytes for each signal, each field for all
// signals.
constexpr std::int64_t fileHeader = 256;
constexpr std::int64_t typeAt = 192;
constexpr std::int64_t signalCountAt = 252;
constexpr std::int64_t labelWidth = 16;
constexpr std::int64_t sampleCountsAt = 216;  // times the number of signals, after the file's part
constexpr std::int64_t numberWidth = 8;
constexpr std::string_view annotationLabel = "EDF Annotations ";

[[noreturn]] void failUnexpected() { throw std::runtime_error("EDFlib wrote an unexpected file"); }

class EdfBytes {
 public:
  explicit EdfBytes(const std::filesystem::path& file)
      : file_(::open(file.c_str(), O_RDWR | O_CLOEXEC)) {
    if (file_.get() < 0) fail();
  }

  std::string read(std::int64_t at, std::int64_t size) const {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t count = ::pread(file_.get(), bytes.data() + done, bytes.size() - done,
                                    at + static_cast<std::int64_t>(done));
      if (count == 0) failUnexpected();
      if (count > 0) {
        done += static_cast<std::size_t>(count);
      } else if (errno != EINTR) {
        fail();
      }
    }
    return bytes;
  }

  void write(std::int64_t at, std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t count = ::pwrite(file_.get(), bytes.data(), bytes.size(), at);
      if (count > 0) {
        bytes.remove_prefix(static_cast<std::size_t>(count));
        at += count;
      } else if (errno != EINTR) {
        fail();
      }
    }
  }

  std::int64_t number(std::int64_t at, std::int64_t width) const {
    const std::string text = read(at, width);
    std::int64_t number = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) {
      failUnexpected();
    }
    return number;
  }

 private:
  [[noreturn]] static void fail() { throw std::system_error(errno, std::generic_category()); }

  main_queue::FileDescriptor file_;
};

// Where the first annotation signal of each data record is; its first annotation is the time.
struct TimeField {
  std::int64_t first = 0;  // in the file
  std::int64_t size = 0;
  std::int64_t recordSize = 0;
};

TimeField timeField(const EdfBytes& bytes) {
  const std::int64_t signals = bytes.number(signalCountAt, 4);
  TimeField field;
  for (std::int64_t i = 0; i < signals; ++i) {
    const std::int64_t size =
        2 * bytes.number(fileHeader + sampleCountsAt * signals + i * numberWidth, numberWidth);
    if (field.size == 0 && bytes.read(fileHeader + i * labelWidth, labelWidth) == annotationLabel) {
      field.first = fileHeader * (signals + 1) + field.recordSize;
      field.size = size;
    }
    field.recordSize += size;
  }
  if (field.size == 0) failUnexpected();
  return field;
}

// The annotations of a data record with another time at their beginning.
std::string withOnset(std::string_view annotations, std::int64_t before, std::int64_t onset) {
  const auto time = [](std::int64_t second) {
    return "+" + std::to_string(second) + std::string("\x14\x14\0", 3);
  };
  if (!annotations.starts_with(time(before))) failUnexpected();
  std::string_view rest = annotations.substr(time(before).size());
  rest = rest.substr(0, rest.find_last_not_of('\0') + 1);
  std::string changed = time(onset) + std::string(rest);
  // The last annotation ends with a zero byte too.
  if (changed.size() >= annotations.size()) failUnexpected();
  changed.resize(annotations.size(), '\0');
  return changed;
}

}  // namespace

void makeDiscontinuous(const std::filesystem::path& file, const EdfRecords& records) {
  const EdfBytes bytes(file);
  const TimeField field = timeField(bytes);
  std::int64_t record = 0;
  for (const EdfRecords::Stretch& stretch : records.stretches()) {
    for (std::int64_t onset = stretch.first; onset < stretch.end(); ++onset, ++record) {
      if (onset == record) continue;
      const std::int64_t at = field.first + record * field.recordSize;
      bytes.write(at, withOnset(bytes.read(at, field.size), record, onset));
    }
  }
  bytes.write(typeAt, "EDF+D");
}

}  // namespace Zephly::exporting
