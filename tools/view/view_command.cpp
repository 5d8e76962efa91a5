// SPDX-License-Identifier: MIT
#include <tools/view/view_command.h>

#include <capture/text.h>
#include <hosts/main_queue/main_queue.h>
#include <tools/common/output.h>
#include <tools/common/version_text.h>
#include <tools/view/access.h>
#include <tools/view/assets.h>
#include <tools/view/browser.h>
#include <tools/view/message_feed.h>
#include <tools/view/options.h>
#include <tools/view/server.h>
#include <tools/watch/session_runner.h>
#include <tools/watch/summary.h>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zephly::view {

namespace {

// How long viewers may take to receive the last messages. The release of the strap before it may
// take up to 3 s when the bus stalls, which is then most of what the end may take.
constexpr std::chrono::seconds farewell{2};
constexpr std::chrono::milliseconds leastFarewell{300};

ServerOptions serverOptions(const Options& options) {
  ServerOptions server;
  server.port = options.port;
  server.assets = assets();
  server.limits.queueBytes = options.viewerQueue;
  if (options.listen) {
    server.address = *options.listen;
    server.token = makeToken();
  }
  return server;
}

// The states: watching; the source has ended and the page stays; ending, from an end signal or
// --exit-at-end on: viewers get the last messages, and the queue stops when all have closed or
// after `farewell`. A second end signal stops it at once.
class LivePage final : private watch::SessionHandler {
 public:
  explicit LivePage(const Options& options)
      : options_(options),
        feed_([this](const Message& message) { server_.send(message); }),
        server_(
            queue_.context(), serverOptions(options), [this] { return greeting(); },
            [this](std::string_view line) { say(line); }),
        browser_(queue_, [this](std::string_view line) { say(line); }),
        runner_("view", queue_, options.source, *this, MessageFeed::interval) {}

  int run() {
    runner_.measureVitals();
    runner_.run();
    finishSource();
    output_.finish(farewell);
    return runner_.exitCode(complaints());
  }

 private:
  std::vector<Message> greeting() {
    return feed_.greeting({.program = tools::programName(),
                           .title = runner_.source().title(),
                           .pace = runner_.source().pace(),
                           .session = session_,
                           .now = runner_.now()});
  }

  void onReady() override {
    const std::vector<std::string> addresses = server_.addresses();
    for (const std::string& address : addresses) say("Live page: " + address);
    if (options_.open) browser_.open(addresses.front());
  }

  // The page must not wait for a reader of standard output: lines are dropped when half of the
  // buffer is full.
  void say(std::string_view line) {
    if (output_.pending() < tools::Output::bufferSize / 2) {
      output_.write(capture::printable(line) + "\n");
    }
    output_.flush();
  }

  void onEvent(const watch::Event& event) override { feed_.take(event); }
  void onHostLine(std::string_view line) override { say(line); }
  void onRefresh() override { feed_.tick(runner_.now()); }

  // Called from inside the source, which can be finished only after it has returned.
  void onSourceEnd() override {
    runner_.stopClock();
    queue_.post([this] {
      if (options_.exitAtEnd) return onEndSignal();
      finishSource();
      say("The session has ended. The page stays open until Ctrl-C.");
    });
  }

  void finishSource() {
    if (summary_) return;
    summary_ = watch::summarize(runner_.finish(), feed_.model());
    feed_.end(runner_.now());
  }

  void onEndSignal() override {
    if (ending_) {
      queue_.stop();
      return;
    }
    ending_ = true;
    const auto begin = std::chrono::steady_clock::now();
    finishSource();
    server_.close([this] { queue_.stop(); });
    const std::chrono::nanoseconds rest = begin + farewell - std::chrono::steady_clock::now();
    farewellTimer_ = queue_.after(std::max<std::chrono::nanoseconds>(rest, leastFarewell),
                                  [this] { queue_.stop(); });
  }

  std::vector<std::string> complaints() {
    std::vector<std::string> complaints = runner_.finish().complaints;
    for (std::string& loss : watch::losses(*summary_)) complaints.push_back(std::move(loss));
    if (const auto failure = output_.failure()) {
      complaints.push_back("standard output: " + *failure);
    }
    return complaints;
  }

  const Options& options_;
  main_queue::MainQueue queue_;
  tools::Output output_{STDOUT_FILENO};
  const std::string session_ = makeToken();
  MessageFeed feed_;
  Server server_;
  Browser browser_;
  std::optional<watch::Summary> summary_;
  bool ending_ = false;
  main_queue::Timer farewellTimer_;
  watch::SessionRunner runner_;
};

}  // namespace

tools::Command addViewCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("view", "Show a strap on a live page in the browser");
  command->footer(
      "Examples:\n"
      "  zephly view --simulated --open              show a simulated strap\n"
      "  zephly view --replay walk.zcap --speed 10   show a capture\n"
      "\n"
      "Prints the address of the page. Ctrl-C ends it.\n"
      "Exit code: 0 success; 1 data lost, or page not served; 2 wrong options.");
  const auto options = std::make_shared<Options>();
  addOptions(*command, *options);
  return {command, [options] {
            watch::checkTogether(options->source);
            if (assets().empty()) throw std::runtime_error(noPage);
            watch::loadRecording(options->source);
            return LivePage(*options).run();
          }};
}

}  // namespace Zephly::view
