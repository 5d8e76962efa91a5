#include <tools/view/view_command.h>

#include <capture/text.h>
#include <hosts/main_queue/main_queue.h>
#include <tools/common/output.h>
#include <tools/common/version_text.h>
#include <tools/view/access.h>
#include <tools/view/assets.h>
#include <tools/view/browser.h>
#include <tools/view/feed.h>
#include <tools/view/options.h>
#include <tools/view/server.h>
#include <tools/watch/diagnostics_catcher.h>
#include <tools/watch/receiver.h>
#include <zephly/session/zephly.h>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zephly::view {

namespace {

// How long viewers may take to get what waits for them at the end.
constexpr std::chrono::seconds farewell{2};

ServerOptions serverOptions(const Options& options) {
  ServerOptions server;
  server.port = options.port;
  server.assets = assets();
  if (options.listen) {
    server.address = *options.listen;
    server.token = makeToken();
  }
  return server;
}

class LivePage {
 public:
  explicit LivePage(const Options& options)
      : options_(options),
        feed_([this](const Message& message) { server_.send(message); }),
        server_(
            queue_.context(), serverOptions(options), [this] { return greeting(); },
            [this](std::string_view line) { say(line); }),
        browser_(queue_, [this](std::string_view line) { say(line); }),
        source_(watch::makeSource(
            queue_, options.source, [this](std::string_view line) { hostLine(line); },
            [this] { sourceEnded(); })),
        receiver_(std::make_shared<watch::Receiver>(
            [this] { return source_->now(); },
            [this](const watch::Event& event) { feed_.take(event); })),
        catcher_([this](std::string_view line) { receiver_->diagnosticLine(line); }) {}

  int run() {
    const auto session = ::Zephly::Zephly::init(receiver_);
    session->startWorkoutDetection(receiver_);
    endSignals_ = queue_.onSignal({SIGINT, SIGTERM, SIGHUP}, [this](int) { end(); });
    sayWhere();
    source_->start();
    tick();
    queue_.run();
    finishSource();
    output_.finish(farewell);
    return verdict();
  }

 private:
  std::vector<Message> greeting() {
    return feed_.greeting({.program = tools::programName(),
                           .title = source_->title(),
                           .pace = source_->pace(),
                           .session = session_,
                           .now = source_->now()});
  }

  void sayWhere() {
    const std::vector<std::string> addresses = server_.addresses();
    for (const std::string& address : addresses) say("Live page: " + address);
    if (options_.open) browser_.open(addresses.front());
  }

  // Nobody has to read it: what cannot be written for long is left out.
  void say(std::string_view line) {
    if (output_.pending() < tools::Output::bufferSize / 2) {
      output_.write(capture::printable(line) + "\n");
    }
    output_.finish(std::chrono::milliseconds::zero());
  }

  void hostLine(std::string_view line) {
    say(line);
    receiver_->hostLine(line);
  }

  void tick() {
    feed_.tick(source_->now());
    tickTimer_ = queue_.after(Feed::interval, [this] { tick(); });
  }

  // From inside the source: what it still has to tell is fetched afterwards.
  void sourceEnded() {
    receiver_->endAt(source_->now());
    queue_.post([this] {
      finishSource();
      if (options_.exitAtEnd) {
        end();
      } else {
        say("The session has ended; the page stays until Ctrl-C.");
      }
    });
  }

  void finishSource() {
    if (summary_) return;
    const simulator::StrapTime now = source_->now();
    receiver_->endAt(now);
    watch::SourceReport report = source_->finish();
    summary_ = watch::summarize(report, feed_.model());
    complaints_ = std::move(report.complaints);
    feed_.end(now);
  }

  // Asked for once more, it does not wait for anybody.
  void end() {
    if (ending_) {
      queue_.stop();
      return;
    }
    ending_ = true;
    finishSource();
    server_.close([this] { queue_.stop(); });
    farewellTimer_ = queue_.after(farewell, [this] { queue_.stop(); });
  }

  int verdict() {
    std::vector<std::string> complaints = complaints_;
    for (std::string& loss : watch::losses(*summary_)) complaints.push_back(std::move(loss));
    if (output_.state() == tools::Output::State::failed) {
      complaints.push_back("standard output: " + output_.error());
    }
    for (const std::string& complaint : complaints) {
      std::cerr << "zephly view: " << complaint << '\n';
    }
    return complaints.empty() ? tools::exitDone : tools::exitFailed;
  }

  const Options& options_;
  main_queue::MainQueue queue_;
  tools::Output output_{STDOUT_FILENO};
  const std::string session_ = makeToken();
  Feed feed_;
  Server server_;
  Browser browser_;
  std::unique_ptr<watch::Source> source_;
  std::shared_ptr<watch::Receiver> receiver_;
  watch::DiagnosticsCatcher catcher_;
  std::optional<watch::Summary> summary_;
  std::vector<std::string> complaints_;  // about the source
  bool ending_ = false;
  main_queue::Timer tickTimer_;
  main_queue::Timer farewellTimer_;
  main_queue::SignalWatch endSignals_;
};

}  // namespace

tools::Command addViewCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("view", "Show a strap on a live page in the browser");
  command->footer(
      "The strap is the one that this machine's Bluetooth hears, or a simulated one. The page is\n"
      "for this machine only, unless --listen says otherwise; any number of people may look.\n"
      "It prints the page's address, and a line for everybody who comes and goes.\n"
      "Ctrl-C ends it. Exit code: 0 when nothing was lost; 1 when something was lost or the page\n"
      "cannot be served; 2 for options that are not understood.");
  const auto options = std::make_shared<Options>();
  addOptions(*command, *options);
  return {command, [options] {
            watch::checkTogether(options->source);
            if (assets().empty()) {
              throw std::runtime_error(
                  "this program was built without Node.js and holds no page; install nodejs 18 or "
                  "newer with npm and build it again");
            }
            // Viewers that go away are seen by the server.
            static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
            return LivePage(*options).run();
          }};
}

}  // namespace Zephly::view
