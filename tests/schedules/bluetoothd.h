// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A simulated bluetoothd with one adapter and one strap in front of it, all on the main queue of
/// the program under test. A schedule disturbs it. Its behaviour is that of BlueZ 5.66, as the fake
/// service of the other tests has it; here messages also take their time, in both directions.
///
///   Bluetoothd bluetoothd(seed, witness);     // in place of the system bus from now on
///   ...                                       // the program opens the bus
///   bluetoothd.apply(step);

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/file_descriptor.h>
#include <hosts/main_queue/main_queue.h>
#include <simulator/frame.h>
#include <simulator/random.h>
#include <tests/schedules/schedule.h>
#include <tests/schedules/simulated_bus.h>
#include <zephly/protocol/streams.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace schedules {

/// Learns what reaches the program, just before it does.
class Witness {
 public:
  virtual ~Witness() = default;
  /// A value that the program has to report: it has subscribed to it on this link.
  virtual void value(const Zephly::simulator::Frame& frame) = 0;
  /// The program learns, or causes, the end of the link.
  virtual void linkEnds() = 0;
  /// A call that a correct program does not make.
  virtual void wrongCall(const std::string& what) = 0;
};

class Bluetoothd final : public BusService {
 public:
  Bluetoothd(std::uint64_t seed, Witness& witness);

  /// Called once, when the bus is opened for the first time: the run begins.
  std::function<void(Zephly::main_queue::MainQueue&)> begun;
  void apply(const Step& step);

  /// The strap sends less from now on, to save time: nothing happens any more.
  void slowDown() { pace_ = 10; }
  /// The strap sends nothing more, so that nothing is under way when the run ends.
  void silence() { pace_ = 0; }

  bool connected() const { return connected_; }
  /// Streams that the program receives, or whose subscription was refused on this link.
  std::size_t settledStreams() const;
  std::uint64_t links() const { return links_; }
  std::uint64_t calls() const { return callCount_; }

  Opening opening(Zephly::main_queue::MainQueue& queue) override;
  void opened(SimulatedBus& bus) override;
  void closed(SimulatedBus& bus) override;
  void called(SimulatedBus& bus, BusCall call) override;
  void abandoned(const BusCall& call) override;
  std::chrono::nanoseconds backlog() const override;

 private:
  using Job = std::function<void()>;
  // Jobs that run in the order in which they were added, each after its own delay.
  struct Line {
    struct Entry {
      Duration due;
      Job job;
    };
    std::deque<Entry> jobs;
    Zephly::main_queue::Timer timer;
    Duration last{};
  };

  // Messages.
  void add(Line& line, Job job);
  void turn(Line& line);
  void arm(Line& line);
  Duration delay();
  void toProgram(std::function<void(SimulatedBus&)> message);
  void signal(const std::string& path, const char* interface, const char* member,
              Zephly::bluez::Arguments arguments, Job before = {});
  void changed(const std::string& path, const char* interface, Zephly::bluez::Dictionary values,
               Job before = {});
  void ownerChanged(const std::string& before, const std::string& now);
  void reply(const BusCall& call, Zephly::bluez::Arguments values = {});
  void refuse(const BusCall& call, const std::string& name, const std::string& text);

  // Calls.
  void handle(const BusCall& call);
  void handleBusCall(const BusCall& call);
  void perform(const BusCall& call);
  void performOnAdapter(const BusCall& call);
  void connect(const BusCall& call);
  void disconnect(const BusCall& call);
  void notSubscribed(Zephly::Stream stream, std::uint64_t call);
  void performOnCharacteristic(const BusCall& call, Zephly::Stream stream);
  Zephly::bluez::Dictionary properties(const std::string& path, const std::string& interface) const;
  Zephly::bluez::Dictionary tree() const;
  Zephly::bluez::Value openDescriptor(Zephly::Stream stream);

  // The adapter, the service, the strap.
  void startService();
  void stopService();
  void setPower(bool on);
  void setAdapter(bool present);
  void advertiseSoon();
  void advertise();
  void beginLink();
  void linkStep(int step);
  void dropLink();
  void failConnect(const std::string& text);
  void forgetDevice();
  void addGattObjects();
  void sendFrames();
  void sendFrame(Zephly::Stream stream);
  void connectByOthers();
  void sendForeignSignals();
  void fillFeeds(const std::map<Zephly::Stream, Zephly::main_queue::FileDescriptor>& feeds);
  // The program learns that it has no link.
  void programLosesLink();
  // The program learns that there is no adapter, or that it is off: that ends its scan, too.
  void programLosesRadio();
  void checkCall(const BusCall& call);

  void later(Duration delay, Job job);

  Zephly::main_queue::MainQueue* queue_ = nullptr;
  Zephly::simulator::Random random_;
  Witness& witness_;
  SimulatedBus* bus_ = nullptr;
  std::uint64_t busNumber_ = 0;
  Line toService_;
  Line toProgram_;
  std::uint64_t lastTimer_ = 0;
  std::map<std::uint64_t, Zephly::main_queue::Timer> timers_;

  // Disturbances: how many steps hold each at the moment.
  std::map<Action, int> active_;
  int slowest_ = 0;  // ms
  int refusal_ = 0;
  int stepsUntilCut_ = -1;
  int pace_ = 1;  // factor of the intervals between frames; 0: none

  bool busExists_ = true;
  bool running_ = true;
  int owner_ = 7;
  bool adapter_ = true;
  bool powered_ = true;
  bool discovering_ = false;
  bool inRange_ = true;
  bool advertising_ = false;  // the next advertisement is planned
  bool deviceKnown_ = false;
  bool connected_ = false;
  bool resolved_ = false;
  bool gattKnown_ = false;
  std::vector<BusCall> connecting_;  // Connect() calls without a reply
  std::uint64_t attempt_ = 0;        // links and attempts so far; steps of earlier ones are void
  std::uint64_t links_ = 0;
  std::uint64_t callCount_ = 0;
  std::uint64_t frameCount_ = 0;
  std::set<Zephly::Stream> notifying_;
  std::map<Zephly::Stream, Zephly::main_queue::FileDescriptor> feeds_;

  // The program's view.
  std::set<Zephly::Stream> listening_;
  std::set<Zephly::Stream> failed_;
  std::map<Zephly::Stream, std::uint64_t> requested_;  // the latest StartNotify
  std::map<Zephly::Stream, int> busyReplies_;          // on this link
  bool scans_ = false;
  std::uint64_t connectCall_ = 0;  // under way; 0: none
};

}  // namespace schedules
