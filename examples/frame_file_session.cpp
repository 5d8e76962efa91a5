// SPDX-License-Identifier: MIT
/// A session on a host written from scratch (frame_file_host.h, under 150 lines): plays frames from
/// standard input through the kit, as fast as it takes them, and counts what comes out. A line is
/// "sent STREAM HEX", with a time before it or not, as `zephly strap --frames` prints it; other
/// lines are passed over.
///
///     zephly strap --frames > frames.txt
///     ./frame_file_session < frames.txt

#include <zephly/zephly.h>
#include <examples/frame_file_host.h>

#include <charconv>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

namespace {

using Bytes = std::vector<std::uint8_t>;

class Application final : public ZephlyDelegate {
 public:
  void didConnectPeripheral() override { std::cerr << "connected\n"; }
  void didDisconnectPeripheral() override { std::cerr << "gone\n"; }
  void didChangeLeadoffState(bool off) override {
    std::cerr << (off ? "electrodes off\n" : "electrodes on skin\n");
  }
  void didReceiveECG(float /*sample*/) override { ++ecgSamples_; }
  void didReceiveRespiration(float /*sample*/) override { ++respirationSamples_; }
  void didReceiveTemperature(float skin, float ambient, float /*body*/) override {
    std::cerr << "skin " << skin << " C, ambient " << ambient << " C\n";
  }
  void didReceiveBatteryStatus(BatteryStatus battery) override {
    std::cerr << "battery " << battery.soc << " %\n";
  }
  void sumUp() const {
    std::cerr << ecgSamples_ << " ECG samples, " << respirationSamples_ << " of respiration\n";
  }

 private:
  long ecgSamples_ = 0;
  long respirationSamples_ = 0;
};

// Empty when the text is not pairs of hexadecimal digits.
std::optional<Bytes> bytesOf(std::string_view hex) {
  if (hex.empty() || hex.size() % 2 != 0) return std::nullopt;
  Bytes bytes;
  for (; !hex.empty(); hex.remove_prefix(2)) {
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(hex.data(), hex.data() + 2, byte, 16);
    if (error != std::errc() || end != hex.data() + 2) return std::nullopt;
    bytes.push_back(byte);
  }
  return bytes;
}

// The words behind "sent": the stream's name and the bytes. Empty for any other line.
std::optional<std::pair<std::string, std::string>> frameOf(const std::string& line) {
  std::istringstream words(line);
  std::string word;
  words >> word;
  if (word != "sent") words >> word;
  std::string stream;
  std::string hex;
  if (word != "sent" || !(words >> stream >> hex)) return std::nullopt;
  return std::pair(stream, hex);
}

}  // namespace

int main() {
  const std::map<std::string, CBUUID> streams = {{"temperature", temperatureCharacteristicUUID()},
                                                 {"battery", batteryCharacteristicUUID()},
                                                 {"ecg", ecgCharacteristicUUID()},
                                                 {"respiration", respirationCharacteristicUUID()},
                                                 {"motion", motionCharacteristicUUID()}};
  frame_file::Queue queue;
  const frame_file::FrameFileHost host(queue);  // the host in use while it lives
  const auto application = std::make_shared<Application>();
  const auto session = Zephly::Zephly::init(application);
  frame_file::run(queue);  // found, connected, subscribed

  std::string line;
  for (long number = 1; std::getline(std::cin, line); ++number) {
    const auto frame = frameOf(line);
    const auto stream = frame ? streams.find(frame->first) : streams.end();
    if (stream == streams.end()) continue;
    const auto bytes = bytesOf(frame->second);
    if (!bytes) {
      std::cerr << "frame_file_session: line " << number << ": expected bytes in hexadecimal\n";
      return 1;
    }
    host.strap->notify(stream->second, *bytes);
    frame_file::run(queue);
  }
  application->sumUp();
}
