#pragma once
/// @file
/// What every D-Bus service with an object manager does, under a script: for each call the answer,
/// for each signal its fate, for each property its value can be something that the real service
/// would not do, or not on demand.

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

/// A call that came in.
struct Call {
  Message message;
  std::string sender;
  std::string path;
  std::string interface;
  std::string method;
  std::string arguments;  ///< as textOf() writes them
  Writer wrongReply;      ///< takes the place of the right reply
};
using CallPointer = std::shared_ptr<Call>;

/// What a call that a rule matches meets.
struct Answer {
  enum class Kind {
    normal,
    refuse,  ///< an error, and nothing is done
    wrong,   ///< done, but the reply has another body
    hold,    ///< handled when the test says release()
    delay,   ///< handled after a while
    never,   ///< nothing is done, nothing comes back
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
  /// Handles what is held: calls and signals, in their order.
  void release();
  std::size_t heldCalls() const { return heldCalls_.size(); }
  /// Changes every set of properties before it is sent, in whatever message.
  std::function<void(const std::string& path, const std::string& interface, Properties&)> tamper;
  /// The fate of every signal.
  std::function<Fate(const std::string& path, const std::string& member)> fate;

  // The log.

  const std::vector<CallPointer>& log() const { return log_; }
  /// How many calls of the method came in so far, at `path` ("" for any).
  int calls(const std::string& method, const std::string& path = {}) const;
  /// The last of them; null when there was none.
  CallPointer lastCall(const std::string& method) const;
  /// Grows with everything that comes in or goes out.
  std::uint64_t activity() const { return activity_; }

  // Raw acts.

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
