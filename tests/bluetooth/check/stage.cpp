// SPDX-License-Identifier: MIT
#include <tests/bluetooth/check/stage.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <iostream>

namespace Zephly::bluetooth_check {

namespace {

// The polling interval of conditions that cause no event.
constexpr std::chrono::milliseconds look{10};

Seconds secondsOf(const timeval& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

std::size_t statusEntry(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, name.size(), name) == 0) return std::stoul(line.substr(name.size()));
  }
  return 0;
}

}  // namespace

Usage usageNow() {
  rusage used{};
  ::getrusage(RUSAGE_SELF, &used);
  constexpr std::size_t kilobyte = 1024;
  return {secondsOf(used.ru_utime) + secondsOf(used.ru_stime), ::mallinfo2().uordblks,
          statusEntry("VmRSS:") * kilobyte, statusEntry("Threads:")};
}

bool Stage::until(Seconds limit, const std::function<bool()>& condition) {
  const auto deadline = now() + limit;
  bool holds = condition();
  while (!holds && now() < deadline) {
    const auto timer = queue_.after(look, [this] { queue_.stop(); });
    queue_.run();
    holds = condition();
  }
  return holds;
}

void Stage::pass(Seconds time) {
  until(time, [] { return false; });
}

bool Stage::run(const std::string& command) {
  std::cerr << "    " << command << '\n';
  const pid_t child = ::fork();
  if (child == 0) {
    ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    ::_exit(127);
  }
  int status = 0;
  until(Seconds(60), [&] { return ::waitpid(child, &status, WNOHANG) == child; });
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void Stage::command(const std::string& strap, const std::string& line) {
  std::cerr << "    " << strap << ": " << line << '\n';
  const std::string text = line + '\n';
  const int pipe = ::open(("/run/" + strap).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (pipe < 0 || ::write(pipe, text.data(), text.size()) < 0)
    std::cerr << "    the strap does not read its commands\n";
  if (pipe >= 0) ::close(pipe);
}

Seconds Stage::now() const { return std::chrono::steady_clock::now().time_since_epoch(); }

}  // namespace Zephly::bluetooth_check
