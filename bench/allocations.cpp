// SPDX-License-Identifier: MIT
// Counts heap allocations, per sample and per frame, and names the functions that make them. Writes
// a Markdown table on standard output.

#include <hosts/foundation/data.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/butterworth_filter.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/protocol/frame_decoders.h>

#include <tests/support/strap_host.h>
#include <zephly/ble/gatt_profile.h>
#include <bench/allocation_sites.h>
#include <bench/connected_session.h>
#include <bench/inputs.h>
#include <bench/null_buffer.h>
#include <bench/simulated_session.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace simulator = Zephly::simulator;
using namespace std::chrono_literals;
using bench::AllocationReport;
using Zephly::Stream;
using Zephly::hosts::Data;

constexpr std::size_t settled = 1000;  // calls before the count, and in the count

double perCall(std::size_t count, std::size_t calls) {
  return static_cast<double>(count) / static_cast<double>(calls);
}

// "1 in `f`; 2 in `g`", per call.
std::string describe(const AllocationReport& report, std::size_t calls) {
  std::ostringstream text;
  for (const auto& site : report.sites) {
    if (text.tellp() > 0) text << "; ";
    text << perCall(site.allocations, calls) << " in " << site.function;
  }
  return text.str();
}

// Tables are printed at the end: standard output is discarded while the kit runs.
std::ostringstream tables;

void heading(const char* title, const char* explanation) {
  tables << "### " << title << "\n\n" << explanation << "\n\n";
}

void row(const std::string& name, const std::function<void()>& call) {
  const AllocationReport first = bench::allocationsOf(call);
  for (std::size_t count = 0; count < settled; ++count) call();
  const AllocationReport later = bench::allocationsOf([&] {
    for (std::size_t count = 0; count < settled; ++count) call();
  });
  const bool once = first.allocations > 0 && later.allocations == 0;
  tables << "| " << name << " | " << first.allocations << " | "
         << perCall(later.allocations, settled) << " | " << perCall(later.bytes, settled) << " | "
         << (once ? "once: " + describe(first, 1) : describe(later, settled)) << " |\n";
}

template <class FilterType, class... Arguments>
void filterRow(const std::string& name, Arguments... arguments) {
  FilterType filter(arguments...);
  row(name, [&filter] { filter.process(0.5F); });
}

void filters() {
  filterRow<Filter>("Filter, a sample");
  filterRow<BiquadFilter>("BiquadFilter of order 8, a sample", BiquadLowpass, 0.1, 8, 1.0);
  filterRow<LowCutFilter>("LowCutFilter, a sample", 110, 0.004, 4);
  filterRow<MedianFilter>("MedianFilter 300, a sample", 300);
  filterRow<NormalizationFilter>("NormalizationFilter 5000, a sample", 5000, true);
  filterRow<Zephly::ButterworthFilter>("ButterworthFilter, a sample", 1.0F, 60, Zephly::Lowpass,
                                       2.0F);
  MultiFilter chain;
  chain.addFilter(std::make_unique<MedianFilter>(5).release());
  row("MultiFilter, a sample", [&chain] { chain.process(0.5); });
}

void engine() {
  const bench::SilentOutput silent;
  Zephly::SignalProcessor processor;
  const auto ignore = [](void* /*context*/) {};
  processor.setJumpCallback(ignore, nullptr);
  processor.setSitUpCallback(ignore, nullptr);
  processor.setPushUpCallback(ignore, nullptr);
  row("engine, an ECG sample", [&] { processor.processECG(0.5F); });
  row("engine, a respiration sample", [&] { processor.processRespiration(0.5F); });
  row("engine, lead-off of a sample", [&] { processor.processLeadoffDetection(0.5F); });
  row("engine, a body temperature", [&] { processor.processBodyTemperature(33.0F, 24.0F); });
  row("engine, a motion sample of 7 values", [&] { processor.imu(1, 0, 0, 0, 0, 0, 1); });
  row("engine, a motion sample of 9 values", [&] { processor.imu(0, 0, 0, 0, 0, 1, 1, 0, 0); });
}

void decoders() {
  const auto frame = [](Stream stream) { return Data(bench::framesOf(stream).front().bytes); };
  row("decoder, an ECG or respiration frame",
      [data = frame(Stream::ecg)] { FrameDecoders::calculateECGValue(data); });
  row("decoder, a temperature frame",
      [data = frame(Stream::temperature)] { FrameDecoders::calculateTemperatureValue(data); });
  row("decoder, a battery frame",
      [data = frame(Stream::battery)] { FrameDecoders::calculateBatterySOCValue(data); });
  row("decoder, a motion frame",
      [data = frame(Stream::motion)] { FrameDecoders::calculateMotionValue(data); });
}

void session() {
  bench::ConnectedSession connected;
  for (const Stream stream : Zephly::allStreams) {
    const auto value = Data::of(bench::framesOf(stream).front().bytes);
    row("session, a frame of " + std::string(streamInfo(stream).name),
        [&] { connected.deliver(stream, value); });
  }
}

void radio() {
  bench::SimulatedSession simulated;
  const auto frame = bench::framesOf(Stream::ecg).front();
  row("simulated radio and session, a frame of ecg", [&] {
    simulated.device().notify(Zephly::characteristicUUID(Stream::ecg), frame.bytes);
    simulated.scheduler().advance(0s);
  });
}

void constructionRow(const std::string& name, const std::function<void()>& construct) {
  construct();  // objects created once per process
  const AllocationReport report = bench::allocationsOf(construct);
  tables << "| " << name << " | " << report.allocations << " | " << report.bytes << " | "
         << describe(report, 1) << " |\n";
}

void constructions() {
  const bench::SilentOutput silent;
  constructionRow("engine", [] { const auto made = std::make_unique<Zephly::SignalProcessor>(); });
  fake::StrapHost host;
  const auto application = std::make_shared<bench::CountingApplication>();
  std::shared_ptr<Zephly::Zephly> session;
  constructionRow("session", [&] { session = Zephly::Zephly::init(application); });
  constructionRow("a connection of it", [&] { host.connect(); });
}

}  // namespace

int main() {
  if (bench::allocationsOf([] { ::operator delete(::operator new(8)); }).allocations != 1) {
    std::cerr << "error: allocations are not counted in this build\n";
    return 1;
  }
  heading("Allocations in operation",
          "Calls of `operator new`: in the first call of the operation, and per call after a "
          "thousand calls, with the functions that make them.");
  tables << "| | first call | per call | bytes per call | where |\n|---|--:|--:|--:|---|\n";
  filters();
  engine();
  decoders();
  session();
  radio();
  tables << "\n";
  heading("Allocations in construction",
          "Of the second object of its kind in the process. The host's own objects count where it "
          "is asked for them.");
  tables << "| | allocations | bytes | where |\n|---|--:|--:|---|\n";
  constructions();
  tables << "\n";
  std::cout << tables.str();
  return 0;
}
