// SPDX-License-Identifier: MIT
#include <tests/support/fake_bluez/private_bus.h>

#include <hosts/main_queue/file_descriptor.h>
#include <tests/support/fake_bluez/bus_value.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace fake_bluez {

namespace {

using Zephly::main_queue::FileDescriptor;

// Replaces the child process by dbus-daemon, whose messages go to a file.
[[noreturn]] void becomeDaemon(const std::string& directory, int addressDescriptor) {
  // The test may have blocked signals, and a child process inherits the mask.
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int log = open((directory + "/bus.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(log, STDERR_FILENO);
  const std::string file = "--config-file=" + directory + "/bus.conf";
  const std::string print = "--print-address=" + std::to_string(addressDescriptor);
  execl(ZEPHLY_DBUS_DAEMON, "dbus-daemon", file.c_str(), "--nofork", "--nopidfile", print.c_str(),
        nullptr);
  _exit(127);
}

}  // namespace

PrivateBus::PrivateBus() {
  std::string name = (std::filesystem::temp_directory_path() / "zephly-bus-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "make a directory for the bus");
  }
  directory_ = name;
  configure();
}

PrivateBus::~PrivateBus() {
  stop();
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void PrivateBus::start() {
  std::array<int, 2> pipe{};
  check(-(::pipe(pipe.data()) != 0 ? errno : 0), "make a pipe");
  const FileDescriptor readEnd(pipe[0]);
  FileDescriptor writeEnd(pipe[1]);
  process_ = fork();
  check(process_ < 0 ? -errno : 0, "start dbus-daemon");
  if (process_ == 0) becomeDaemon(directory_, writeEnd.get());
  writeEnd = FileDescriptor();
  // The daemon writes its address when it listens. If it cannot listen, it closes the pipe without
  // writing.
  std::array<char, 256> line{};
  const ssize_t length = read(readEnd.get(), line.data(), line.size());
  if (length <= 0) {
    std::ostringstream reason;
    reason << std::ifstream(directory_ + "/bus.log").rdbuf();
    throw std::runtime_error("dbus-daemon did not start: " + reason.str());
  }
}

void PrivateBus::stop() {
  if (!running()) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  process_ = -1;
  std::filesystem::remove(directory_ + "/bus");
}

void PrivateBus::freeze(bool frozen) { ::kill(process_, frozen ? SIGSTOP : SIGCONT); }

void PrivateBus::allow(bool allowed) {
  allowed_ = allowed;
  configure();
}

void PrivateBus::reload() {
  sd_bus* bus = nullptr;
  check(sd_bus_new(&bus), "make a connection");
  sd_bus_set_address(bus, address().c_str());
  sd_bus_set_bus_client(bus, 1);
  int result = sd_bus_start(bus);
  if (result >= 0) {
    result = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus", "ReloadConfig", nullptr, nullptr, nullptr);
  }
  sd_bus_flush_close_unref(bus);
  check(result, "reload the configuration");
}

void PrivateBus::configure() {
  std::ofstream file(directory_ + "/bus.conf");
  file << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><auth>EXTERNAL</auth><listen>)"
       << address() << R"(</listen><policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>)";
  if (!allowed_) file << R"(<deny send_destination="org.bluez" send_type="method_call"/>)";
  file << "</policy></busconfig>\n";
}

}  // namespace fake_bluez
