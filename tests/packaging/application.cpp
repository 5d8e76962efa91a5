/// A small application, as somebody else would write it: three seconds of a session on the
/// simulated host. Prints how many ECG samples came and a digest of their bits; ends with 1 when
/// something is not right.

#include <hosts/simulated/living_strap.h>
#include <simulator/recording.h>
#include <zephly/zephly.h>

#include <bit>
#include <cstdint>
#include <iostream>
#include <memory>

namespace {

constexpr int wantedSamples = 3 * 500;

class Application final : public ZephlyDelegate {
 public:
  explicit Application(Zephly::main_queue::MainQueue& queue) : queue_(queue) {}

  void didConnectPeripheral() override { ++connections_; }
  void didDisconnectPeripheral() override {}
  void didChangeLeadoffState(bool) override {}
  void didReceiveECG(float sample) override {
    if (ecgSamples_ == wantedSamples) return;
    add(sample);
    if (++ecgSamples_ == wantedSamples) queue_.stop();
  }
  void didReceiveRespiration(float sample) override {
    if (ecgSamples_ < wantedSamples) add(sample);
  }
  void didReceiveTemperature(float, float, float) override {}
  void didReceiveBatteryStatus(BatteryStatus) override {}

  int connections() const { return connections_; }
  int ecgSamples() const { return ecgSamples_; }
  std::uint64_t digest() const { return digest_; }

 private:
  // FNV-1a over the bits.
  void add(float sample) {
    digest_ = (digest_ ^ std::bit_cast<std::uint32_t>(sample)) * 0x100000001b3U;
  }

  Zephly::main_queue::MainQueue& queue_;
  int connections_ = 0;
  int ecgSamples_ = 0;
  std::uint64_t digest_ = 0xcbf29ce484222325U;
};

// What the library throws is caught here by its type.
bool errorsCross() {
  try {
    (void)Zephly::simulator::Recording::parse("no numbers\n", "nothing.csv", 500);
  } catch (const Zephly::simulator::RecordingError&) {
    return true;
  }
  return false;
}

}  // namespace

int main() {
  Zephly::main_queue::MainQueue queue;
  const Zephly::simulated::LivingStrap strap(queue, {}, 1000);
  const auto application = std::make_shared<Application>(queue);
  const std::shared_ptr<ZephlyPeripheralDelegate> session = Zephly::Zephly::init(application);
  queue.run();
  std::cout << "ECG samples " << application->ecgSamples() << ", digest " << std::hex
            << application->digest() << std::dec << '\n';
  // Type information of the kit's classes is one and the same on both sides.
  const bool cast = dynamic_cast<WorkoutDelegate*>(session.get()) != nullptr;
  const bool good = application->connections() == 1 && application->ecgSamples() == wantedSamples &&
                    cast && errorsCross();
  return good ? 0 : 1;
}
