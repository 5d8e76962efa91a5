// SPDX-License-Identifier: MIT
#include <tools/view/browser.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

namespace Zephly::view {

namespace {

constexpr const char* opener = "xdg-open";

// The settings of a child process that inherits no descriptors and no terminal.
class Apart {
 public:
  Apart() {
    ::posix_spawn_file_actions_init(&files_);
    ::posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&files_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // Otherwise the browser would inherit the listening socket and keep the port in use.
    ::posix_spawn_file_actions_addclosefrom_np(&files_, STDERR_FILENO + 1);
    ::posix_spawnattr_init(&attributes_);
    sigset_t defaults{};
    sigemptyset(&defaults);
    for (const int ignored : {SIGPIPE, SIGXFSZ}) sigaddset(&defaults, ignored);
    ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
    // Ctrl-C ends this program, not the browser.
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
  }
  Apart(const Apart&) = delete;
  Apart& operator=(const Apart&) = delete;
  ~Apart() {
    ::posix_spawn_file_actions_destroy(&files_);
    ::posix_spawnattr_destroy(&attributes_);
  }

  const posix_spawn_file_actions_t& files() const { return files_; }
  const posix_spawnattr_t& attributes() const { return attributes_; }

 private:
  posix_spawn_file_actions_t files_{};
  posix_spawnattr_t attributes_{};
};

}  // namespace

Browser::Browser(main_queue::MainQueue& queue, Complain complain)
    : complain_(std::move(complain)),
      childEnds_(queue.onSignal({SIGCHLD}, [this](int) { ended(); })) {}

void Browser::open(const std::string& address) {
  const Apart apart;
  std::string program = opener;
  std::string argument = address;
  const std::array<char*, 3> arguments = {program.data(), argument.data(), nullptr};
  const int error = ::posix_spawnp(&child_, opener, &apart.files(), &apart.attributes(),
                                   arguments.data(), environ);
  if (error == 0) return;
  child_ = -1;
  complain_(error == ENOENT
                ? "There is no xdg-open on this machine: open the page in a browser yourself."
                : "xdg-open cannot be started: open the page in a browser yourself.");
}

void Browser::ended() {
  int status = 0;
  if (child_ < 0 || ::waitpid(child_, &status, WNOHANG) != child_) return;
  child_ = -1;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    complain_("xdg-open found no browser: open the page yourself.");
  }
}

}  // namespace Zephly::view
