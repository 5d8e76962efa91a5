// SPDX-License-Identifier: MIT
// `zephly export`: any capture to an EDF+ file, CSV files or both, with every option, to free names
// or over what is there.
//
// Either all outputs are there and whole, or there is an error of one line and everything is as it
// was. The EDF+ file has the size that its header says; a CSV file has a row for each sample, each
// with all columns, in order of time.
//
// The outputs are in memory, and larger ones than 8 MB fail, as on a full disk.

#include <capture/codec.h>
#include <capture/record.h>
#include <hosts/replay/capture_player.h>
#include <hosts/replay/samples.h>
#include <tools/export/exporter.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>
#include <fuzz/support/any_capture.h>
#include <fuzz/support/input.h>
#include <fuzz/support/quiet.h>
#include <fuzz/support/reclaim.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using fuzz::Input;
using fuzz::require;
using Zephly::Stream;
using Zephly::exporting::ExportOptions;
using Zephly::exporting::WrittenFile;
namespace fs = std::filesystem;

constexpr rlim_t largestFile = 8'000'000;

// Contents by name, of a directory and the directories in it.
using Tree = std::map<std::string, std::string>;

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write(const fs::path& path, std::string_view text) {
  std::ofstream(path, std::ios::binary) << text;
}

// An empty directory in memory, one for the whole run.
class Scratch {
 public:
  Scratch() {
    const fs::path memory = "/dev/shm";
    std::string name =
        (fs::is_directory(memory) ? memory : fs::temp_directory_path()) / "zephly-fuzz-XXXXXX";
    require(::mkdtemp(name.data()) != nullptr, "a directory in memory");
    path_ = name;
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { fs::remove_all(path_); }

  fs::path operator/(const char* name) const { return path_ / name; }
  void empty() const {
    for (const auto& entry : fs::directory_iterator(path_)) fs::remove_all(entry.path());
  }
  Tree tree() const {
    Tree tree;
    for (const auto& entry : fs::recursive_directory_iterator(path_)) {
      const std::string name = entry.path().lexically_relative(path_).string();
      tree[name] = entry.is_directory() ? "(directory)" : contentOf(entry.path());
    }
    return tree;
  }

 private:
  fs::path path_;
};

// EDF+ -------------------------------------------------------------------------------------------

long numberAt(std::string_view text, std::size_t at, std::size_t size) {
  require(text.size() >= at + size, "the header of an EDF+ file");
  std::string_view field = text.substr(at, size);
  field = field.substr(0, field.find_last_not_of(' ') + 1);
  long value = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  require(error == std::errc() && end == field.data() + field.size(), "a number in the header");
  return value;
}

void checkEdf(std::string_view file, const ExportOptions& options) {
  constexpr std::size_t fixedHeader = 256;
  constexpr std::size_t samplesAt = 216;  // of each signal, before the fields of 8 characters
  require(file.starts_with("0       "), "the version of an EDF+ file");
  const std::string_view kind = options.edfForm.discontinuous ? "EDF+D" : "EDF+C";
  require(file.substr(192, kind.size()) == kind, "the kind of EDF+ file");
  const auto header = static_cast<std::size_t>(numberAt(file, 184, 8));
  const auto records = static_cast<std::size_t>(numberAt(file, 236, 8));
  const auto signals = static_cast<std::size_t>(numberAt(file, 252, 4));
  require(records > 0 && signals > 6, "records and signals");
  require(header == fixedHeader * (1 + signals), "the length of the header");
  std::size_t samples = 0;
  for (std::size_t i = 0; i < signals; ++i) {
    samples +=
        static_cast<std::size_t>(numberAt(file, fixedHeader + samplesAt * signals + 8 * i, 8));
  }
  require(file.size() == header + records * samples * 2, "the length of the file");
  require(std::ranges::all_of(file.substr(0, header),
                              [](char one) { return one >= ' ' && one <= '~'; }),
          "the header is text");
}

// CSV --------------------------------------------------------------------------------------------

// Nanoseconds, from "-0.000000001".
std::int64_t timeIn(std::string_view cell) {
  const bool negative = cell.starts_with('-');
  if (negative) cell.remove_prefix(1);
  const std::size_t point = cell.find('.');
  require(point != std::string_view::npos && cell.size() == point + 10, "a time in a row");
  std::string digits(cell.substr(0, point));
  digits += cell.substr(point + 1);
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  require(error == std::errc() && end == digits.data() + digits.size(), "the digits of a time");
  return negative ? -value : value;
}

void checkDate(std::string_view cell) {
  constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd.dddddddddZ";
  require(cell.size() == form.size(), "the length of a date");
  for (std::size_t i = 0; i < form.size(); ++i) {
    const bool digit = cell[i] >= '0' && cell[i] <= '9';
    require(form[i] == 'd' ? digit : cell[i] == form[i], "a date");
  }
}

std::uint64_t rowsIn(std::string_view file) {
  require(file.ends_with('\n'), "whole rows");
  std::optional<std::ptrdiff_t> columns;
  std::optional<std::int64_t> before;
  std::uint64_t rows = 0;
  while (!file.empty()) {
    const std::string_view row = file.substr(0, file.find('\n'));
    file.remove_prefix(row.size() + 1);
    const std::ptrdiff_t commas = std::ranges::count(row, ',');
    require(columns.value_or(commas) == commas, "each row has all columns");
    if (!std::exchange(columns, commas)) continue;
    const std::size_t comma = row.find(',');
    const std::int64_t time = timeIn(row.substr(0, comma));
    require(before.value_or(time) <= time, "rows in order of time");
    before = time;
    checkDate(row.substr(comma + 1, row.find(',', comma + 1) - comma - 1));
    ++rows;
  }
  return rows;
}

void checkCsv(const Tree& tree, const std::optional<Zephly::PerStream<std::uint64_t>>& samples) {
  for (const Stream stream : Zephly::allStreams) {
    const std::string name = "csv/" + std::string(streamInfo(stream).name) + ".csv";
    require(tree.contains(name), "a file for each stream");
    const std::uint64_t rows = rowsIn(tree.at(name));
    require(!samples || rows == (*samples)[stream], "a row for each sample");
  }
  for (const char* name :
       {"csv/events.csv", "csv/beats.csv", "csv/breaths.csv", "csv/vitals.csv"}) {
    require(tree.contains(name), "a file for the events, and one for each of the vitals");
    rowsIn(tree.at(name));
  }
}

// One export -------------------------------------------------------------------------------------

Zephly::PerStream<std::uint64_t> samplesIn(const fs::path& capture) {
  Zephly::PerStream<std::uint64_t> samples{};
  Zephly::replay::CapturePlayer(capture).play([&](const Zephly::replay::PlayedRecord& record) {
    Zephly::replay::forEachSample(
        record, [&](Stream stream, std::span<const float> /*values*/) { ++samples[stream]; });
  });
  return samples;
}

struct Export {
  bool counts = false;  // the samples, which takes as long as an export
  Tree before;
  Tree after;
  std::optional<std::string> failure;
  std::vector<std::string> complaints;
  std::vector<WrittenFile> written;
  std::optional<Zephly::PerStream<std::uint64_t>> samples;
};

ExportOptions optionsFrom(unsigned bits, const Scratch& scratch) {
  ExportOptions options;
  if ((bits & 1U) == 0) options.edf = scratch / "a.edf";
  if ((bits & 2U) == 0) options.csv = scratch / "csv";
  options.edfForm = {.discontinuous = (bits & 4U) != 0, .utc = (bits & 8U) != 0};
  if ((bits & 16U) != 0) {
    write(scratch / "a.edf", "an earlier export");
    fs::create_directory(scratch / "csv");
    write(scratch / "csv" / "ecg.csv", "an earlier export");
  }
  if ((bits & 32U) != 0) options.existing = Zephly::exporting::Existing::replaced;
  if ((bits & 64U) != 0) options.interrupted = [] { return true; };
  return options;
}

void run(ExportOptions options, const std::vector<std::uint8_t>& file, const Scratch& scratch,
         Export& result) {
  options.capture = scratch / "a.zcap";
  write(options.capture, {reinterpret_cast<const char*>(file.data()), file.size()});
  options.written = [&](const WrittenFile& one) { result.written.push_back(one); };
  result.before = scratch.tree();
  try {
    result.complaints = exportCapture(options);
    if (result.counts) result.samples = samplesIn(options.capture);
  } catch (const std::runtime_error& error) {
    result.failure = error.what();
  }
  result.after = scratch.tree();
}

void requireOneLine(const std::string& text) {
  require(!text.empty() && text.find('\n') == std::string::npos, "an error is one line");
}

void check(const ExportOptions& options, const Export& result) {
  for (const std::string& complaint : result.complaints) requireOneLine(complaint);
  if (result.failure) {
    requireOneLine(*result.failure);
    require(result.after == result.before, "after an error everything is as it was");
    return;
  }
  require(result.after.at("a.zcap") == result.before.at("a.zcap"), "the capture is the same");
  if (options.edf) checkEdf(result.after.at("a.edf"), options);
  if (options.csv) checkCsv(result.after, result.samples);
  const std::size_t files = (options.edf ? 1 : 0) + (options.csv ? 9 : 0);
  require(result.written.size() == files, "each output is reported");
  for (const WrittenFile& one : result.written) {
    require(one.bytes == fs::file_size(one.path), "the size of an output");
  }
  // The directory of the CSV files counts, too. What was not asked for is as it was.
  for (const auto& [name, content] : result.after) {
    const bool csv = name.starts_with("csv");
    const bool asked = csv ? options.csv.has_value() : name == "a.edf" && options.edf.has_value();
    require(asked || (result.before.contains(name) && result.before.at(name) == content),
            "nothing but the outputs");
  }
}

// A session in which every callback of the kit is called.
std::vector<std::uint8_t> wholeSession() {
  using namespace Zephly::capture;
  std::vector<decltype(Record::what)> events = {
      StateChanged{CBManagerState::poweredOn}, Discovered{.peripheral = 1, .name = "Zephly"},
      Connected{1}, ServicesDiscovered{1, {{1, "0000180F-0000-1000-8000-00805F9B34FB"}}}};
  CharacteristicsDiscovered found{1, 1, {}, {}};
  for (const CBUUID& uuid : characteristics()) {
    const auto id = static_cast<ObjectId>(2 + found.characteristics.size());
    found.characteristics.push_back({id, uuid.UUIDString()});
  }
  events.emplace_back(found);
  for (const Listed& characteristic : found.characteristics) {
    events.emplace_back(SubscriptionChanged{1, characteristic.id});
    events.emplace_back(Value{1, characteristic.id, std::vector<std::uint8_t>(20, 1)});
  }
  events.emplace_back(Disconnected{1, "lost"});
  events.emplace_back(Ended{});
  std::vector<std::uint8_t> file = encodePreamble({});
  for (std::uint64_t i = 0; i < events.size(); ++i) {
    const auto record = encodeRecord({Stamp{}, events[i]}, i);
    file.insert(file.end(), record.begin(), record.end());
  }
  return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Scratch scratch;
  [[maybe_unused]] static const bool limited = [] {
    const rlimit limit{largestFile, largestFile};
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    require(::setrlimit(RLIMIT_FSIZE, &limit) == 0, "a limit for files");
    // Objects that are created once and kept must not be attributed to an export.
    fuzz::Reclaim::never([] {
      const fuzz::Quiet quiet;
      Export first;
      const ExportOptions options{.capture = {}, .edf = scratch / "a.edf", .csv = scratch / "csv"};
      run(options, wholeSession(), scratch, first);
      require(!first.failure, "the first export is written");
      run(options, wholeSession(), scratch, first);
      require(first.failure.has_value(), "the second export is refused");
    });
    return true;
  }();
  const fuzz::Quiet quiet;
  fuzz::Reclaim reclaim;
  Input input(data, size);
  scratch.empty();
  const unsigned bits = input.byte();
  const ExportOptions options = optionsFrom(bits, scratch);
  const auto file = fuzz::captureFrom(input);
  Export result;
  result.counts = (bits & 128U) != 0;
  reclaim.during([&] { run(options, file, scratch, result); });
  check(options, result);
  return 0;
}
