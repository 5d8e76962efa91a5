// SPDX-License-Identifier: MIT
/// A small application of the installed kit: three seconds of a session on the simulated host,
/// recorded and read back. Prints the number of ECG samples and a digest of their bits; the exit
/// code is 1 when a check fails.

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <capture/tap_host.h>
#include <capture/writer.h>
#include <hosts/simulated/simulated_strap.h>
#include <hosts/vitals/session_vitals.h>
#include <simulator/recording.h>
#include <vitals/vitals.h>
#include <zephly/zephly.h>
#include <offline/offline.h>

#include <bit>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

#include <unistd.h>

namespace {

constexpr int wantedSamples = 3 * 500;

class Application final : public ZephlyDelegate, private Zephly::vitals::Receiver {
 public:
  explicit Application(Zephly::main_queue::MainQueue& queue) : queue_(queue) {}

  void didConnectPeripheral() override { ++connections_; }
  void didDisconnectPeripheral() override {}
  void didChangeLeadoffState(bool) override {}
  void didReceiveECG(float sample) override {
    if (ecgSamples_ == wantedSamples) return;
    add(sample);
    // As if it were a raw one.
    float again = 0;
    offline_.process({&sample, 1}, {&again, 1});
    add(again);
    vitals_.ecg(std::chrono::milliseconds(2 * ecgSamples_), sample);
    if (++ecgSamples_ < wantedSamples) return;
    vitals_.finish();
    queue_.stop();
  }
  void didReceiveRespiration(float sample) override {
    if (ecgSamples_ < wantedSamples) add(sample);
  }
  void didReceiveTemperature(float, float, float) override {}
  void didReceiveBatteryStatus(BatteryStatus) override {}

  int connections() const { return connections_; }
  int ecgSamples() const { return ecgSamples_; }
  int seconds() const { return seconds_; }
  std::uint64_t digest() const { return digest_; }

 private:
  void beat(const Zephly::vitals::Beat& beat) override { add(static_cast<float>(beat.quality)); }
  void breath(const Zephly::vitals::Breath& /*breath*/) override {}
  void second(const Zephly::vitals::Second& second) override {
    add(static_cast<float>(second.ecgQuality));
    ++seconds_;
  }

  // FNV-1a over the bits.
  void add(float sample) {
    digest_ = (digest_ ^ std::bit_cast<std::uint32_t>(sample)) * 0x100000001b3U;
  }

  Zephly::main_queue::MainQueue& queue_;
  int connections_ = 0;
  int ecgSamples_ = 0;
  int seconds_ = 0;
  Zephly::vitals::Vitals vitals_{{.respirationRate = 0}, *this};
  Zephly::offline::Ecg offline_;
  std::uint64_t digest_ = 0xcbf29ce484222325U;
};

std::chrono::nanoseconds steadyTime() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

// Exceptions of a library are caught here by their type.
bool errorsCross() {
  int caught = 0;
  try {
    (void)Zephly::simulator::Recording::parse("no numbers\n", "nothing.csv", 500);
  } catch (const Zephly::simulator::RecordingError&) {
    ++caught;
  }
  try {
    const Zephly::capture::Reader reader("/");
  } catch (const Zephly::capture::CaptureError&) {
    ++caught;
  }
  // No host is in use.
  struct : Zephly::vitals::Receiver {
    void beat(const Zephly::vitals::Beat& /*beat*/) override {}
    void breath(const Zephly::vitals::Breath& /*breath*/) override {}
    void second(const Zephly::vitals::Second& /*second*/) override {}
  } nothing;
  try {
    const Zephly::hosts::SessionVitals vitals(nothing, steadyTime);
  } catch (const std::logic_error&) {
    ++caught;
  }
  try {
    float filtered = 0;
    Zephly::offline::Ecg().process({}, {&filtered, 1});
  } catch (const std::invalid_argument&) {
    ++caught;
  }
  return caught == 4;
}

// A file that is removed with the object.
class ScratchFile {
 public:
  ScratchFile() = default;
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() { std::filesystem::remove(path_); }

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_ = std::filesystem::temp_directory_path() /
                                ("zephly-application-" + std::to_string(::getpid()) + ".zcap");
};

// The number of notifications in a capture that is whole; 0 for any other file.
int notificationsIn(const std::filesystem::path& file) {
  Zephly::capture::Reader reader(file);
  int notifications = 0;
  while (const std::optional<Zephly::capture::Record> record = reader.next()) {
    if (std::holds_alternative<Zephly::capture::Value>(record->what)) ++notifications;
  }
  return reader.ended() ? notifications : 0;
}

}  // namespace

int main() {
  const bool errors = errorsCross();
  Zephly::main_queue::MainQueue queue;
  const ScratchFile file;
  const Zephly::simulated::SimulatedStrap strap(queue, {}, 1000);
  Zephly::capture::Writer writer(file.path(), {.program = "application", .source = "simulated"});
  Zephly::capture::TapHost tap(
      {.now = steadyTime,
       .sink = [&](const Zephly::capture::Record& record) { (void)writer.append(record); }});
  const auto application = std::make_shared<Application>(queue);
  const std::shared_ptr<ZephlyPeripheralDelegate> session = Zephly::Zephly::init(application);
  queue.run();
  tap.end();
  const bool written = !writer.close();
  std::cout << "ECG samples " << application->ecgSamples() << ", digest " << std::hex
            << application->digest() << std::dec << '\n';
  // The type information of the kit's classes is the same on both sides.
  const bool cast = dynamic_cast<WorkoutDelegate*>(session.get()) != nullptr;
  // Six samples in a notification, and as many of respiration.
  const bool recorded = written && notificationsIn(file.path()) >= wantedSamples / 6 * 2;
  const bool good = application->connections() == 1 && application->ecgSamples() == wantedSamples &&
                    application->seconds() == 3 && cast && recorded && errors;
  return good ? 0 : 1;
}
