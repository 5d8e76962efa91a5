// SPDX-License-Identifier: MIT
#include <tests/support/process.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace {

constexpr int patienceInMilliseconds = 60'000;

// The arguments begin with the program's path. The program begins with the default dispositions of
// the signals that end it, as from a terminal: the tests may run as a background job, which has
// SIGINT and SIGQUIT ignored, or under nohup.
[[noreturn]] void become(std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::signal(signal, SIG_DFL);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  for (const std::string& setting : environment) {
    const std::size_t equals = setting.find('=');
    ::setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
  }
  ::execv(pointers.front(), pointers.data());
  ::_exit(127);
}

std::string contentsOf(int descriptor) {
  std::string text;
  std::array<char, 4096> part{};
  ::lseek(descriptor, 0, SEEK_SET);
  for (ssize_t count = 0; (count = ::read(descriptor, part.data(), part.size())) > 0;) {
    text.append(part.data(), static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> Finished::outputLines() const { return linesOf(output); }

std::vector<std::string> Finished::errorLines() const { return linesOf(errors); }

Process::Process(std::vector<std::string> arguments, Output output,
                 const std::vector<std::string>& environment, const std::string& program)
    : errors_(::memfd_create("errors", MFD_CLOEXEC)) {
  arguments.insert(arguments.begin(), program.empty() ? ZEPHLY_PROGRAM : program);
  if (output == Output::terminal) {
    winsize size{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    int descriptor = -1;
    int terminal = -1;
    // Without it every readUntil() would wait to its limit.
    if (::openpty(&descriptor, &terminal, nullptr, nullptr, &size) != 0) {
      const int reason = errno;
      ::close(errors_);
      // No std::system_error: its constructor makes a virtual call, which the sanitizer checks with
      // a pipe, and there may be no descriptor for one.
      throw std::runtime_error("no pseudo-terminal (is devpts mounted on /dev/pts?): error " +
                               std::to_string(reason));
    }
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(descriptor);
      ::login_tty(terminal);
      ::dup2(errors_, STDERR_FILENO);
      become(arguments, environment);
    }
    output_descriptor_ = descriptor;
    terminal_ = terminal;
    return;
  }
  if (output == Output::full) {
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
      ::dup2(errors_, STDERR_FILENO);
      become(arguments, environment);
    }
    return;
  }
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(ends[1], STDOUT_FILENO);
    ::dup2(errors_, STDERR_FILENO);
    become(arguments, environment);
  }
  ::close(ends[1]);
  output_descriptor_ = ends[0];
}

Process::~Process() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  closeOutput();
  if (terminal_ >= 0) ::close(terminal_);
  ::close(errors_);
}

bool Process::readSome() {
  // A terminal does not report its end, because this program has it open, too. So the process is
  // checked in between.
  const int step = terminal_ >= 0 ? 50 : patienceInMilliseconds;
  for (int waited = 0; waited < patienceInMilliseconds; waited += step) {
    pollfd readable{.fd = output_descriptor_, .events = POLLIN, .revents = 0};
    if (::poll(&readable, 1, step) > 0) {
      std::array<char, 65536> part{};
      const ssize_t count = ::read(output_descriptor_, part.data(), part.size());
      if (count <= 0) return false;
      output_.append(part.data(), static_cast<std::size_t>(count));
      return true;
    }
    if (hasEnded()) {
      return ::poll(&readable, 1, 0) > 0 && readSome();
    }
  }
  return false;
}

bool Process::readUntil(const std::function<bool(const std::string&)>& satisfied) {
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceInMilliseconds);
  while (!satisfied(output_)) {
    if (std::chrono::steady_clock::now() > end || !readSome()) return false;
  }
  return true;
}

bool Process::readUntil(const std::string& text) {
  return readUntil(
      [&](const std::string& output) { return output.find(text) != std::string::npos; });
}

bool Process::readUntil(const std::regex& pattern) {
  return readUntil([&](const std::string& output) { return std::regex_search(output, pattern); });
}

bool Process::hasWritten(const std::string& text) {
  pollfd readable{.fd = output_descriptor_, .events = POLLIN, .revents = 0};
  while (::poll(&readable, 1, 0) > 0 && readSome()) {
  }
  return output_.find(text) != std::string::npos;
}

void Process::sendSignal(int signal) const { ::kill(pid_, signal); }

void Process::type(const std::string& keys) const {
  EXPECT_EQ(::write(output_descriptor_, keys.data(), keys.size()),
            static_cast<ssize_t>(keys.size()));
}

void Process::resizeTerminal(unsigned short columns, unsigned short rows) const {
  const winsize size{.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
  EXPECT_EQ(::ioctl(output_descriptor_, TIOCSWINSZ, &size), 0);
}

bool Process::echoes() const {
  termios settings{};
  EXPECT_EQ(::tcgetattr(terminal_, &settings), 0);
  return (settings.c_lflag & ECHO) != 0;
}

void Process::closeOutput() {
  if (output_descriptor_ >= 0) ::close(output_descriptor_);
  output_descriptor_ = -1;
}

bool Process::hasEnded() const {
  siginfo_t ended{};
  return ::waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         ended.si_pid != 0;
}

bool Process::waitUntilItReads(const std::filesystem::path& file) const {
  const std::filesystem::path descriptors = "/proc/" + std::to_string(pid_) + "/fd";
  while (!hasEnded()) {
    std::error_code gone;  // a descriptor, or the process
    for (const auto& each : std::filesystem::directory_iterator(descriptors, gone)) {
      if (std::filesystem::read_symlink(each, gone) == file) return true;
    }
    ::poll(nullptr, 0, 1);
  }
  return false;
}

bool Process::waitForEnd(std::chrono::seconds limit) const {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!hasEnded()) {
    if (std::chrono::steady_clock::now() > end) return false;
    ::poll(nullptr, 0, 20);
  }
  return true;
}

Finished Process::finish() {
  while (output_descriptor_ >= 0 && readSome()) {
  }
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  const int exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return {exitCode, output_, contentsOf(errors_)};
}

Finished Process::finishWithin(std::chrono::milliseconds limit) {
  constexpr int step = 5;  // milliseconds
  const auto end = std::chrono::steady_clock::now() + limit;
  bool open = output_descriptor_ >= 0;
  while (!hasEnded() && std::chrono::steady_clock::now() < end) {
    pollfd readable{.fd = open ? output_descriptor_ : -1, .events = POLLIN, .revents = 0};
    if (::poll(&readable, 1, step) > 0) open = readSome();
  }
  if (!hasEnded()) ::kill(pid_, SIGKILL);
  return finish();
}

std::vector<std::string> simulatedMonitor(std::vector<std::string> more) {
  more.insert(more.begin(), {"monitor", "--simulated"});
  return more;
}

Finished runProgram(const std::vector<std::string>& arguments) {
  return Process(arguments).finish();
}

Finished runOther(const std::string& program, const std::vector<std::string>& arguments) {
  return Process(arguments, Process::Output::pipe, {}, program).finish();
}
