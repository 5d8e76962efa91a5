// SPDX-License-Identifier: MIT
#include <tools/process/worker_pool.h>

#include <hosts/main_queue/file_descriptor.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

namespace Zephly::processing {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr double progressStep = 0.002;
constexpr auto turn = 100ms;
// The rest of the second in which an interrupted run ends.
constexpr auto patience = 700ms;

// Exit code of a worker whose work is done; the other outcomes follow. Not one that a process has
// that something else has ended.
constexpr int firstCode = 64;

constexpr char progressKind = 'p';
constexpr char complaintKind = 'e';

struct Worker {
  std::size_t index = 0;
  pid_t process = -1;
  main_queue::FileDescriptor line;
  std::string received;  // the beginning of a message
};

std::string systemText(int errorNumber) { return std::generic_category().message(errorNumber); }

[[noreturn]] void workAndExit(std::size_t index, const Work& work, WorkerLine& line, pid_t parent) {
  // A worker must not go on alone. The parent may be gone already.
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  Outcome outcome = Outcome::failed;
  try {
    if (::getppid() == parent) outcome = work(index, line);
  } catch (const std::bad_alloc&) {
    line.complainOfMemory();
  } catch (const std::exception& error) {
    try {
      line.complain(error.what());
    } catch (const std::bad_alloc&) {
      line.complainOfMemory();
    }
  }
  std::exit(firstCode + static_cast<int>(outcome));
}

// One run of all pieces of work.
class Run {
 public:
  Run(std::size_t count, std::size_t jobs, const Work& work, WorkerListener& listener)
      : count_(count), jobs_(jobs), work_(work), listener_(listener) {}

  bool untilDone() {
    while (next_ < count_ || !workers_.empty()) {
      if (listener_.interrupted()) {
        endAll();
        return false;
      }
      startMore();
      waitAndRead();
    }
    // Workers see Ctrl-C, too, and the last one may have ended first.
    return !listener_.interrupted();
  }

 private:
  void startMore() {
    while (next_ < count_ && workers_.size() < jobs_) {
      const int reason = start(next_);
      // When this process may not have more processes, those that run make room.
      if (reason != 0 && !workers_.empty()) return;
      if (reason != 0) {
        listener_.complaint(next_, "cannot start a process: " + systemText(reason));
        listener_.ended(next_, Outcome::failed);
      }
      ++next_;
    }
  }

  int start(std::size_t index) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) < 0) return errno;
    main_queue::FileDescriptor read(ends[0]);
    const main_queue::FileDescriptor write(ends[1]);
    const pid_t parent = ::getpid();
    const pid_t process = ::fork();
    if (process < 0) return errno;
    if (process == 0) {
      read = main_queue::FileDescriptor();
      workers_.clear();
      WorkerLine line(write.get());
      workAndExit(index, work_, line, parent);
    }
    workers_.push_back(
        {.index = index, .process = process, .line = std::move(read), .received = {}});
    return 0;
  }

  void waitAndRead() {
    std::vector<pollfd> polled;
    for (const Worker& worker : workers_) {
      polled.push_back({.fd = worker.line.get(), .events = POLLIN, .revents = 0});
    }
    if (::poll(polled.data(), polled.size(), static_cast<int>(turn.count())) <= 0) return;
    std::vector<Worker> running;
    for (std::size_t i = 0; i < workers_.size(); ++i) {
      if (polled[i].revents == 0 || read(workers_[i])) {
        running.push_back(std::move(workers_[i]));
      } else {
        end(workers_[i]);
      }
    }
    workers_ = std::move(running);
  }

  // False when the worker has closed its end.
  bool read(Worker& worker) {
    std::array<char, 4096> bytes{};
    const ssize_t count = ::read(worker.line.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) return true;
    if (count < 0) {
      listener_.complaint(worker.index, "cannot read from its process: " + systemText(errno));
      return false;
    }
    if (count == 0) return false;
    worker.received.append(bytes.data(), static_cast<std::size_t>(count));
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = worker.received.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
      take(worker, worker.received.substr(begin, end - begin));
    }
    worker.received.erase(0, begin);
    return true;
  }

  void take(const Worker& worker, const std::string& message) {
    const std::string text = message.substr(1);
    if (message.front() == complaintKind) listener_.complaint(worker.index, text);
    double part = 0;
    if (message.front() == progressKind &&
        std::from_chars(text.data(), text.data() + text.size(), part).ec == std::errc()) {
      listener_.progress(worker.index, part);
    }
  }

  void end(const Worker& worker) {
    int status = 0;
    while (::waitpid(worker.process, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) {
      const int code = WEXITSTATUS(status) - firstCode;
      const bool known = code >= 0 && code <= static_cast<int>(Outcome::failed);
      listener_.ended(worker.index, known ? static_cast<Outcome>(code) : Outcome::failed);
      return;
    }
    listener_.complaint(worker.index,
                        std::string("its process was ended: ") + ::strsignal(WTERMSIG(status)));
    listener_.ended(worker.index, Outcome::failed);
  }

  // Workers that do not end by themselves are killed. The next run removes what they leave.
  void endAll() {
    for (const Worker& worker : workers_) ::kill(worker.process, SIGTERM);
    const auto limit = Clock::now() + patience;
    while (!workers_.empty() && Clock::now() < limit) {
      std::erase_if(workers_, [](const Worker& worker) {
        return ::waitpid(worker.process, nullptr, WNOHANG) == worker.process;
      });
      if (!workers_.empty()) ::poll(nullptr, 0, 10);
    }
    for (const Worker& worker : workers_) ::kill(worker.process, SIGKILL);
    for (const Worker& worker : workers_) {
      while (::waitpid(worker.process, nullptr, 0) < 0 && errno == EINTR) {
      }
    }
    workers_.clear();
  }

  std::size_t count_;
  std::size_t jobs_;
  const Work& work_;
  WorkerListener& listener_;
  std::size_t next_ = 0;
  std::vector<Worker> workers_;
};

}  // namespace

void WorkerLine::progress(double part) {
  if (part < sent_ + progressStep && part < 1) return;
  sent_ = part;
  send(progressKind, std::to_string(part));
}

void WorkerLine::complain(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  send(complaintKind, text);
}

void WorkerLine::complainOfMemory() { send(complaintKind, "not enough memory"); }

void WorkerLine::send(char kind, std::string_view text) const {
  write({&kind, 1});
  write(text);
  write("\n");
}

// When the other end is gone, so is the process that would show it.
void WorkerLine::write(std::string_view bytes) const {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count = ::write(descriptor_, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno != EINTR) return;
    if (count > 0) done += static_cast<std::size_t>(count);
  }
}

bool runWorkers(std::size_t count, std::size_t jobs, const Work& work, WorkerListener& listener) {
  return Run(count, jobs, work, listener).untilDone();
}

}  // namespace Zephly::processing
