// SPDX-License-Identifier: MIT
/// Filters the respiration of a whole capture without a session: prints one line for each sample,
/// "raw,filtered,contact". The filtered values are those that a session reports, with the resets
/// after a loss of contact, a hundred times as fast.
///
///     zephly record walk.zcap --simulated --duration 60
///     ./filter_capture walk.zcap > respiration.csv
///
/// Exit code: 0, 1 when the file is damaged or not a capture or the output cannot be written, 2
/// without a file name.

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <hosts/foundation/data.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/frame_decoders.h>
#include <offline/offline.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace {

using namespace Zephly::capture;

// The raw samples of a capture, and the processor time of each frame.
struct Respiration {
  std::vector<float> raw;
  std::vector<Zephly::offline::FrameTime> frames;
};

Respiration read(const std::string& file) {
  Respiration result;
  Reader reader(file);
  std::map<ObjectId, std::string> uuids;
  while (const std::optional<Record> record = reader.next()) {
    if (const auto* discovered = std::get_if<CharacteristicsDiscovered>(&record->what)) {
      for (const Listed& listed : discovered->characteristics) uuids[listed.id] = listed.UUID;
    }
    const auto* value = std::get_if<Value>(&record->what);
    if (value == nullptr || !value->bytes || value->error) continue;
    if (uuids[value->characteristic] != respirationCharacteristicUUID().UUIDString()) continue;
    const auto samples = FrameDecoders::calculateECGValue(Zephly::hosts::Data(*value->bytes));
    result.raw.insert(result.raw.end(), samples.begin(), samples.end());
    result.frames.push_back({samples.size(), record->stamp.processor});
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: filter_capture FILE\n";
    return 2;
  }
  try {
    const Respiration respiration = read(argv[1]);
    std::vector<float> filtered(respiration.raw.size());
    std::vector<std::uint8_t> contact(respiration.raw.size());
    Zephly::offline::Respiration().process(respiration.raw, respiration.frames, filtered, contact);
    std::cout.precision(9);
    std::cout << "raw,filtered,contact\n";
    for (std::size_t i = 0; i < filtered.size(); ++i) {
      std::cout << respiration.raw[i] << ',' << filtered[i] << ',' << int{contact[i]} << '\n';
    }
    if (std::cout.flush()) return 0;
    std::cerr << "filter_capture: the output cannot be written\n";
  } catch (const std::exception& error) {
    std::cerr << "filter_capture: " << error.what() << '\n';
  }
  return 1;
}
