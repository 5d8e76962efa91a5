// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The base of fake D-Bus services with an object manager. A script can replace the answer to each
/// call, the sending of each signal and the value of each property, also by things that the real
/// service would not do.

#include <hosts/main_queue/main_queue.h>
#include <tests/support/fake_bluez/bus_connection.h>

#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace fake_bluez {

/// A received call.
struct Call {
  Message message;
  std::string sender;
  std::string path;
  std::string interface;
  std::string method;
  std::string arguments;  ///< as textOf() writes them
  Writer wrongReply;      ///< replaces the correct reply
};
using CallPointer = std::shared_ptr<Call>;

/// The treatment of a call that matches a rule.
struct Answer {
  enum class Kind {
    normal,
    refuse,  ///< an error, and nothing is done
    wrong,   ///< done, but the reply has another body
    hold,    ///< handled when the test says release()
    delay,   ///< handled after a while
    never,   ///< nothing is done, and there is no reply
  };

  Kind kind = Kind::normal;
  std::string errorName;
  std::string errorText;
  Writer body;
  std::chrono::milliseconds after{0};

  static Answer refuse(std::string name, std::string text);
  static Answer wrong(Writer body = [](sd_bus_message&) {});
  static Answer hold();
  static Answer delay(std::chrono::milliseconds after);
  static Answer never();
};

enum class Fate { once, twice, lost, held };

class FakeService {
 public:
  FakeService(Zephly::main_queue::MainQueue& queue, std::string address, std::string name);
  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;
  virtual ~FakeService() = default;

  bool running() const { return connection_ != nullptr; }
  bool exists(const std::string& path) const { return objects_.contains(path); }
  bool exists(const std::string& path, const std::string& interface) const;
  /// Ends like a killed process: only the bus reports it.
  virtual void kill();

  // The script.

  /// The next `times` calls of `method` at `path` ("" for any) get `answer`; -1 times: all of them.
  void script(const std::string& method, Answer answer, int times = 1,
              const std::string& path = {});
  void clearScript() { rules_.clear(); }
  /// Handles the held calls and signals in order.
  void release();
  std::size_t heldCalls() const { return heldCalls_.size(); }
  /// Changes every set of properties before it is sent, in any message.
  std::function<void(const std::string& path, const std::string& interface, Properties&)> tamper;
  /// The treatment of every signal.
  std::function<Fate(const std::string& path, const std::string& member)> fate;

  // The log.

  const std::vector<CallPointer>& log() const { return log_; }
  /// The number of calls of the method so far, at `path` ("" for any).
  int calls(const std::string& method, const std::string& path = {}) const;
  /// The latest of them; null when there was none.
  CallPointer lastCall(const std::string& method) const;
  /// Increases with every message received or sent.
  std::uint64_t activity() const { return activity_; }

  // Low-level operations.

  void emit(const std::string& path, const char* interface, const char* member, const Writer& body);
  void emitChanged(const std::string& path, const std::string& interface, Properties properties);
  void emitAdded(const std::string& path);
  void emitRemoved(const std::string& path, const std::vector<std::string>& interfaces);

 protected:
  void run();
  /// Every other call than those of ObjectManager and Properties.
  virtual void perform(const CallPointer& call) = 0;
  virtual void setProperty(const CallPointer& call);
  virtual void peerLeft(const std::string& peer) = 0;

  void reply(const CallPointer& call, const Writer& body = {});
  void refuse(const CallPointer& call, const std::string& name, const std::string& text);
  Properties& properties(const std::string& path, const std::string& interface);
  /// Sets properties and signals the change.
  void change(const std::string& path, const std::string& interface, const Properties& changed);
  /// Adds an object and signals it.
  void add(const std::string& path, const std::string& interface, Properties properties);
  void add(const std::string& path, Interfaces interfaces);
  /// Removes the object and everything below it and signals it, the deepest first.
  void remove(const std::string& path);

  Zephly::main_queue::MainQueue& queue() { return queue_; }

 private:
  struct Rule {
    std::string method;
    std::string path;
    Answer answer;
    int times;
  };

  bool incoming(sd_bus_message& message);
  void answer(const CallPointer& call);
  void handle(const CallPointer& call);
  void getManagedObjects(const CallPointer& call);
  void getProperties(const CallPointer& call);
  Interfaces shown(const std::string& path) const;

  Zephly::main_queue::MainQueue& queue_;
  std::string address_;
  std::string name_;
  std::unique_ptr<BusConnection> connection_;
  std::map<std::string, Interfaces> objects_;
  std::list<Rule> rules_;
  std::deque<CallPointer> heldCalls_;
  std::deque<Message> heldSignals_;
  std::vector<Zephly::main_queue::Timer> delays_;
  std::vector<CallPointer> log_;
  std::uint64_t activity_ = 0;
};

}  // namespace fake_bluez
