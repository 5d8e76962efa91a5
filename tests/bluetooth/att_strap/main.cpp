// SPDX-License-Identifier: MIT
/// The program `att_strap`: a strap on a separate Bluetooth controller, with faults on command.

#include <hosts/main_queue/main_queue.h>
#include <tests/bluetooth/att_strap/att_strap.h>
#include <tests/bluetooth/att_strap/commands.h>
#include <tests/bluetooth/att_strap/event_log.h>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using namespace Zephly::att_strap;
using Zephly::main_queue::Interest;
using Zephly::main_queue::MainQueue;
using Zephly::main_queue::Watch;

// "C4:11:22:33:44:55"; a random static address begins with two bits that are set.
std::array<std::uint8_t, 6> addressIn(std::string text) {
  std::erase(text, ':');
  const auto bytes = fromHex(text);
  if (!bytes || bytes->size() != 6 || (bytes->front() & 0xC0U) != 0xC0U) {
    throw CLI::ValidationError("--address", "six bytes, the first one C0 or more");
  }
  std::array<std::uint8_t, 6> address{};
  std::copy(bytes->rbegin(), bytes->rend(), address.begin());
  return address;
}

// Reads lines from standard input. At its end the strap keeps running.
class Input {
 public:
  Input(MainQueue& queue, Commands& commands) : commands_(commands) {
    try {
      watch_ = queue.watch(STDIN_FILENO, Interest::read, [this] { receive(); });
    } catch (const std::system_error&) {
      // Standard input is a file or closed: there are no commands.
    }
  }

 private:
  void receive() {
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count <= 0) return watch_.cancel();
    text_.append(buffer.data(), static_cast<std::size_t>(count));
    for (auto end = text_.find('\n'); end != std::string::npos; end = text_.find('\n')) {
      const std::string line = text_.substr(0, end);
      text_.erase(0, end + 1);
      commands_.perform(line);
    }
  }

  Commands& commands_;
  std::string text_;
  Watch watch_;
};

int run(int argc, char** argv) {
  CLI::App program("A strap on a separate Bluetooth controller, with faults on command.",
                   "att_strap");
  Options options;
  std::string address;
  std::string log;
  program.add_option("--name", options.name, "advertised name");
  auto* gapName =
      program.add_option("--gap-name", options.gapName, "name on a link (as advertised)");
  program.add_option("--mtu", options.mtu, "largest MTU")->check(CLI::Range(23, 517));
  program.add_option("--seed", options.seed, "seed of the modelled person");
  program.add_option("--address", address, "random static address (the controller's public one)");
  program.add_option("--unix", options.socket, "socket of the emulator");
  program.add_option("--log", log, "file for what happens (standard output)");
  try {
    program.parse(argc, argv);
    if (!address.empty()) options.address = addressIn(address);
  } catch (const CLI::ParseError& error) {
    return program.exit(error);
  }
  if (gapName->count() == 0) options.gapName = options.name;

  MainQueue queue;
  EventLog eventLog(queue, log);
  const auto quit = queue.onSignal({SIGINT, SIGTERM}, [&queue](int) { queue.stop(); });
  AttStrap strap(queue, eventLog, options);
  Commands commands(strap, eventLog, [&queue] { queue.stop(); });
  const Input input(queue, commands);
  queue.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "att_strap: " << error.what() << '\n';
    return 1;
  }
}
