#include <tools/monitor/watching.h>

#include <hosts/main_queue/main_queue.h>
#include <tools/common/command.h>
#include <tools/common/output.h>
#include <tools/monitor/diagnostics_file.h>
#include <tools/monitor/terminal_kind.h>
#include <tools/monitor/view.h>
#include <tools/watch/diagnostics_catcher.h>
#include <tools/watch/receiver.h>
#include <zephly/session/zephly.h>

#include <CLI/Error.hpp>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace Zephly::monitor {

namespace {

std::string cannotWrite(const OutputOptions& options, const std::string& reason) {
  return "cannot write " + options.diagnostics->string() + ": " + reason;
}

std::optional<DiagnosticsFile> openDiagnostics(const OutputOptions& options) {
  if (!options.diagnostics) return std::nullopt;
  try {
    return std::optional<DiagnosticsFile>(std::in_place, *options.diagnostics);
  } catch (const std::system_error& error) {
    throw CLI::ValidationError("--diagnostics", cannotWrite(options, error.code().message()));
  }
}

class Monitor {
 public:
  Monitor(std::string command, const OutputOptions& options, const SourceMaker& makeSource)
      : command_(std::move(command)),
        options_(options),
        diagnosticsFile_(openDiagnostics(options)),
        source_(makeSource(
            queue_, [this](std::string_view line) { hostLine(line); }, [this] { end(); })),
        receiver_(std::make_shared<watch::Receiver>(
            [this] { return source_->now(); }, [this](const watch::Event& event) { take(event); })),
        catcher_([this](std::string_view line) { diagnosticLine(line); }),
        view_(makeView()) {}

  int run() {
    const auto session = ::Zephly::Zephly::init(receiver_);
    session->startWorkoutDetection(receiver_);
    watchSignals();
    watchKeyboard();
    source_->start();
    refresh();
    queue_.run();
    receiver_->endAt(source_->now());
    const watch::SourceReport report = source_->finish();
    const watch::Summary summary = watch::summarize(report, model_);
    view_->finish(summary);
    return verdict(report, summary);
  }

 private:
  std::unique_ptr<View> makeView() {
    const TerminalKind kind = terminalKind(STDOUT_FILENO);
    if (options_.json || !kind.terminal) return std::make_unique<JsonView>(output_);
    Watched watched{model_, [this, unicode = kind.unicode] { return viewOptions(unicode); }};
    if (!kind.drawable) return std::make_unique<LineView>(output_, std::move(watched));
    return std::make_unique<ScreenView>(output_, STDOUT_FILENO, kind.colors, std::move(watched));
  }

  ViewOptions viewOptions(bool unicode) const {
    ViewOptions options;
    options.command = command_;
    options.now = source_->now();
    options.title = source_->title();
    options.pace = source_->pace();
    options.unicode = unicode;
    return options;
  }

  void take(const watch::Event& event) {
    model_.take(event);
    view_->take(event);
  }

  void diagnosticLine(std::string_view line) {
    if (diagnosticsFile_) diagnosticsFile_->writeLine(line);
    receiver_->diagnosticLine(line);
  }

  void hostLine(std::string_view line) {
    if (diagnosticsFile_) diagnosticsFile_->writeLine(line);
    receiver_->hostLine(line);
  }

  void refresh() {
    view_->refresh();
    if (output_.state() != tools::Output::State::open) {
      end();
      return;
    }
    refreshTimer_ = queue_.after(View::refreshInterval, [this] { refresh(); });
  }

  void end() {
    receiver_->endAt(source_->now());
    queue_.stop();
  }

  void watchSignals() {
    endSignals_ = queue_.onSignal({SIGINT, SIGTERM, SIGHUP}, [this](int) { end(); });
    resizeSignal_ = queue_.onSignal({SIGWINCH}, [this](int) { view_->resized(); });
    stopSignal_ = queue_.onSignal({SIGTSTP}, [this](int) {
      view_->suspend();
      static_cast<void>(std::raise(SIGSTOP));
      view_->resume();
    });
  }

  // Only what the screen shows as keys: the keyboard of JSON lines belongs to somebody else.
  void watchKeyboard() {
    if (dynamic_cast<ScreenView*>(view_.get()) == nullptr || ::isatty(STDIN_FILENO) == 0) return;
    keyboard_ = queue_.watch(STDIN_FILENO, main_queue::Interest::read, [this] {
      std::array<char, 64> keys{};
      const ssize_t count = ::read(STDIN_FILENO, keys.data(), keys.size());
      if (count <= 0) {
        keyboard_.cancel();
      } else if (std::string_view(keys.data(), static_cast<std::size_t>(count)).find('q') !=
                 std::string_view::npos) {
        end();
      }
    });
  }

  int verdict(const watch::SourceReport& report, const watch::Summary& summary) {
    std::vector<std::string> complaints = report.complaints;
    for (std::string& loss : watch::losses(summary)) complaints.push_back(std::move(loss));
    if (options_.requireAll) {
      for (const std::string& kind : summary.neverArrived) {
        complaints.push_back("never arrived: " + kind);
      }
    }
    if (output_.state() == tools::Output::State::failed) {
      complaints.push_back("standard output: " + output_.error());
    }
    if (const auto reason = diagnosticsFile_ ? diagnosticsFile_->finish() : std::nullopt) {
      complaints.push_back("--diagnostics: " + cannotWrite(options_, *reason));
    }
    for (const std::string& complaint : complaints) {
      std::cerr << "zephly " << command_ << ": " << complaint << '\n';
    }
    return complaints.empty() ? tools::exitDone : tools::exitFailed;
  }

  const std::string command_;
  const OutputOptions& options_;
  std::optional<DiagnosticsFile> diagnosticsFile_;
  main_queue::MainQueue queue_;
  tools::Output output_{STDOUT_FILENO};
  watch::SessionModel model_;
  std::unique_ptr<watch::Source> source_;
  std::shared_ptr<watch::Receiver> receiver_;
  watch::DiagnosticsCatcher catcher_;
  std::unique_ptr<View> view_;
  main_queue::Timer refreshTimer_;
  main_queue::SignalWatch endSignals_;
  main_queue::SignalWatch resizeSignal_;
  main_queue::SignalWatch stopSignal_;
  main_queue::Watch keyboard_;
};

}  // namespace

int watchSession(const std::string& command, const OutputOptions& options,
                 const SourceMaker& makeSource) {
  // A reader that goes away is seen by Output.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  return Monitor(command, options, makeSource).run();
}

}  // namespace Zephly::monitor
