// SPDX-License-Identifier: MIT
/// Reads a capture of `zephly record` without a session: prints where it comes from, counts the
/// notifications of each characteristic and gives the range of the ECG. Damage is reported with its
/// position, and reading goes on behind it.
///
///     zephly record walk.zcap --simulated --duration 60
///     ./read_capture walk.zcap
///
/// Exit code: 0, 1 when the file is cut, damaged or not a capture, 2 without a file name.

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <capture/text.h>
#include <hosts/foundation/data.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/frame_decoders.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace {

using namespace Zephly::capture;

class Counts {
 public:
  void take(const Record& record) {
    end_ = record.stamp.monotonic;
    // A record refers to a characteristic by its number. The list that was discovered says which
    // characteristic that is.
    if (const auto* discovered = std::get_if<CharacteristicsDiscovered>(&record.what)) {
      for (const Listed& listed : discovered->characteristics) uuids_[listed.id] = listed.UUID;
    } else if (const auto* value = std::get_if<Value>(&record.what)) {
      if (value->bytes && !value->error) take(*value);
    } else if (std::holds_alternative<Connected>(record.what)) {
      ++connections_;
    }
  }

  void print() const {
    std::cout << clockText(end_) << ", connected " << connections_ << " time(s)\n";
    for (const auto& [uuid, count] : notifications_) {
      std::cout << uuid << ": " << count << " notifications\n";
    }
    if (ecgSamples_ == 0) return;
    std::cout << ecgSamples_ << " ECG samples from " << lowest_ << " to " << highest_ << '\n';
  }

 private:
  void take(const Value& value) {
    const std::string& uuid = uuids_[value.characteristic];
    ++notifications_[uuid];
    if (uuid != ecgCharacteristicUUID().UUIDString()) return;
    for (const float sample : FrameDecoders::calculateECGValue(Zephly::hosts::Data(*value.bytes))) {
      ++ecgSamples_;
      lowest_ = std::min(lowest_, sample);
      highest_ = std::max(highest_, sample);
    }
  }

  std::map<ObjectId, std::string> uuids_;
  std::map<std::string, long> notifications_;
  std::chrono::nanoseconds end_{};
  int connections_ = 0;
  long ecgSamples_ = 0;
  float lowest_ = std::numeric_limits<float>::max();  // full scale is +-2.42
  float highest_ = std::numeric_limits<float>::lowest();
};

// Whether the file is whole.
bool read(Reader& reader, Counts& counts) {
  bool whole = true;
  while (true) {
    try {
      const std::optional<Record> record = reader.next();
      if (!record) break;
      counts.take(*record);
    } catch (const CaptureError& error) {
      std::cerr << "read_capture: " << error.what() << '\n';
      whole = false;
    }
  }
  if (whole && !reader.ended()) {
    std::cerr << "read_capture: the end of the capture is missing\n";
    whole = false;
  }
  return whole;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: read_capture FILE\n";
    return 2;
  }
  try {
    Reader reader(argv[1]);
    // Texts of a file may hold control characters: printable() replaces them.
    std::cout << printable(reader.preamble().source) << ", recorded by "
              << printable(reader.preamble().program) << '\n';
    Counts counts;
    const bool whole = read(reader, counts);
    counts.print();
    return whole ? 0 : 1;
  } catch (const CaptureError& error) {
    std::cerr << "read_capture: " << error.what() << '\n';
    return 1;
  }
}
