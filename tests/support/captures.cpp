// SPDX-License-Identifier: MIT
#include <tests/support/captures.h>

#include <capture/codec.h>

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace captures {

using namespace Zephly::capture;
using namespace std::chrono_literals;

namespace {

constexpr const char* shortUUID = "0000180F-0000-1000-8000-00805F9B34FB";
constexpr const char* longUUID = "47366E80-CF3A-11E1-9AB4-0002A5D5C51B";

Stamp someStamp(std::int64_t number) {
  return {std::chrono::nanoseconds(number * 1'000'000'007), 1'800'000'000s + 123ns,
          static_cast<std::uint64_t>(number) + 5};
}

std::string randomText(std::mt19937_64& random) {
  std::string text(random() % 40, ' ');
  for (char& character : text) character = static_cast<char>(random() % 256);
  return text;
}

std::optional<std::string> perhapsText(std::mt19937_64& random) {
  if (random() % 2 == 0) return std::nullopt;
  return randomText(random);
}

std::string randomUUID(std::mt19937_64& random) {
  constexpr const char* digits = "0123456789ABCDEF";
  std::string text = longUUID;
  for (char& character : text) {
    if (character != '-') character = digits[random() % 16];
  }
  return text;
}

std::vector<Listed> randomList(std::mt19937_64& random) {
  std::vector<Listed> list(random() % 5);
  for (Listed& one : list) {
    one = {static_cast<ObjectId>(random()), randomUUID(random), randomText(random)};
  }
  return list;
}

decltype(Record::what) randomWhat(std::mt19937_64& random) {
  const auto id = [&] { return static_cast<ObjectId>(random()); };
  switch (random() % 9) {
    case 0:
      return StateChanged{static_cast<CBManagerState>(random() % 6)};
    case 1: {
      Discovered what{.peripheral = id(), .RSSI = static_cast<std::int32_t>(random())};
      what.name = perhapsText(random);
      what.localName = perhapsText(random);
      what.serviceUUIDs.resize(random() % 4);
      for (std::string& one : what.serviceUUIDs) one = randomUUID(random);
      return what;
    }
    case 2:
      return Connected{id()};
    case 3:
      return FailedToConnect{id(), perhapsText(random)};
    case 4:
      return Disconnected{id(), perhapsText(random)};
    case 5:
      return ServicesDiscovered{id(), randomList(random), perhapsText(random)};
    case 6:
      return CharacteristicsDiscovered{id(), id(), randomList(random), perhapsText(random)};
    case 7:
      return SubscriptionChanged{id(), id(), perhapsText(random)};
    default: {
      Value what{.peripheral = id(), .characteristic = id()};
      if (random() % 5 != 0) {
        what.bytes.emplace(random() % 600);
        for (std::uint8_t& byte : *what.bytes) byte = static_cast<std::uint8_t>(random());
      }
      what.error = perhapsText(random);
      return what;
    }
  }
}

Record randomRecord(std::mt19937_64& random) {
  Record record;
  record.stamp.monotonic = std::chrono::nanoseconds(static_cast<std::int64_t>(random()));
  record.stamp.wall = std::chrono::nanoseconds(static_cast<std::int64_t>(random()));
  record.stamp.processor = random();
  record.what = randomWhat(random);
  return record;
}

}  // namespace

ScratchDirectory::ScratchDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "zephly-capture-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch directory");
  path_ = name;
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path ScratchDirectory::file(const std::string& name, const Bytes& content) const {
  std::filesystem::path file = path_ / name;
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream.write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
  stream.close();
  if (!stream) throw std::runtime_error("cannot write " + file.string());
  return file;
}

Bytes contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Preamble somePreamble() {
  return {.program = "zephly 1.0",
          .source = "simulated strap, seed 1",
          .simulated = true,
          .began = 1'800'000'000s + 1ns};
}

std::vector<Record> someOfEach() {
  const std::vector<decltype(Record::what)> all = {
      StateChanged{CBManagerState::unknown},
      StateChanged{CBManagerState::poweredOn},
      Discovered{.peripheral = 1},
      Discovered{1, "Zephly", "Zephly", {shortUUID, longUUID}, -58},
      Connected{1},
      Connected{0xFFFFFFFF},
      FailedToConnect{1, std::nullopt},
      FailedToConnect{1, "it does not answer"},
      Disconnected{1, std::nullopt},
      Disconnected{1, ""},
      ServicesDiscovered{1, {}, "none"},
      ServicesDiscovered{1, {{1, shortUUID, ""}, {2, longUUID, ""}}, std::nullopt},
      CharacteristicsDiscovered{1, 2, {}, "none"},
      CharacteristicsDiscovered{1, 2, {{3, shortUUID, "<battery>"}}, std::nullopt},
      SubscriptionChanged{1, 3, std::nullopt},
      SubscriptionChanged{1, 3, "refused"},
      Value{1, 3, std::nullopt, "no value"},
      Value{1, 3, std::vector<std::uint8_t>(), std::nullopt},
      Value{1, 3, {{0x10, 0x27}}, std::nullopt},
      Ended{}};
  std::vector<Record> records;
  records.reserve(all.size());
  for (const auto& what : all) {
    records.push_back({someStamp(static_cast<std::int64_t>(records.size())), what});
  }
  return records;
}

std::vector<Record> randomRecords(std::mt19937_64& random, std::size_t count) {
  std::vector<Record> records(count);
  for (Record& record : records) record = randomRecord(random);
  return records;
}

Bytes captureOf(const std::vector<Record>& records) {
  Bytes file = encodePreamble(somePreamble());
  for (std::size_t i = 0; i < records.size(); ++i) {
    const Bytes bytes = encodeRecord(records[i], i);
    file.insert(file.end(), bytes.begin(), bytes.end());
  }
  return file;
}

std::vector<std::size_t> beginningsOf(const std::vector<Record>& records) {
  std::vector<std::size_t> beginnings{encodePreamble(somePreamble()).size()};
  for (std::size_t i = 0; i < records.size(); ++i) {
    beginnings.push_back(beginnings.back() + encodeRecord(records[i], i).size());
  }
  return beginnings;
}

ReadBack readBack(const std::filesystem::path& file) {
  ReadBack back;
  std::optional<Reader> reader;
  try {
    reader.emplace(file);
  } catch (const CaptureError& error) {
    back.errors.push_back(error);
    return back;
  }
  back.preamble = reader->preamble();
  while (true) {
    try {
      auto record = reader->next();
      if (!record) break;
      back.records.push_back(std::move(*record));
    } catch (const CaptureError& error) {
      back.errors.push_back(error);
    }
  }
  back.ended = reader->ended();
  return back;
}

}  // namespace captures
