// SPDX-License-Identifier: MIT
#include <tools/monitor/watching.h>

#include <hosts/main_queue/main_queue.h>
#include <tools/common/output.h>
#include <tools/monitor/diagnostics_file.h>
#include <tools/monitor/terminal_kind.h>
#include <tools/monitor/view.h>
#include <tools/watch/session_model.h>
#include <tools/watch/session_runner.h>
#include <tools/watch/summary.h>

#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zephly::monitor {

namespace {

// How long the source waits for a reader of JSON lines that takes nothing. A replay waits as long
// as the reader likes, which may be a pager. A simulation faster than real time waits for a slow
// reader, but ends in time when the reader stops. A real strap cannot wait, and a simulated one in
// real time behaves like it.
std::chrono::milliseconds patienceFor(const watch::SourceOptions& source) {
  if (source.replay) return std::chrono::hours(1'000'000);
  return std::chrono::milliseconds(source.speed.value_or(1) > 1 ? 500 : 0);
}

std::optional<DiagnosticsFile> openDiagnostics(const watch::SourceOptions& source,
                                               const OutputOptions& options) {
  if (!options.diagnostics) return std::nullopt;
  DiagnosticsOptions diagnostics{.overwrite = options.overwrite};
  for (const auto& input : {source.replay, source.recording}) {
    if (input) diagnostics.inputs.push_back(*input);
  }
  return std::optional<DiagnosticsFile>(std::in_place, *options.diagnostics, diagnostics);
}

class Monitor final : private watch::SessionHandler {
 public:
  Monitor(const std::string& command, const watch::SourceOptions& source,
          const OutputOptions& options)
      : command_(command),
        options_(options),
        patience_(patienceFor(source)),
        replayed_(source.replay.has_value()),
        diagnosticsFile_(openDiagnostics(source, options)),
        runner_(command, queue_, source, *this, View::refreshInterval,
                diagnosticsFile_ ? &*diagnosticsFile_ : nullptr) {}

  int run() {
    view_ = makeView();
    runner_.measureVitals();
    runner_.run();
    const watch::SourceReport& report = runner_.finish();
    const watch::Summary summary = watch::summarize(report, model_);
    view_->finish(summary);
    return runner_.exitCode(complaints(report, summary));
  }

 private:
  std::unique_ptr<View> makeView() {
    const TerminalKind kind = terminalKind(STDOUT_FILENO);
    if (options_.json || !kind.terminal) return std::make_unique<JsonView>(output_, patience_);
    Watched watched{model_, [this, unicode = kind.unicode] { return viewOptions(unicode); }};
    if (!kind.drawable) return std::make_unique<LineView>(output_, std::move(watched));
    return std::make_unique<ScreenView>(output_, STDOUT_FILENO, kind.colors, std::move(watched));
  }

  ViewOptions viewOptions(bool unicode) const {
    ViewOptions options;
    options.command = command_;
    options.now = runner_.now();
    options.title = runner_.source().title();
    options.pace = runner_.source().pace();
    options.unicode = unicode;
    return options;
  }

  void onEvent(const watch::Event& event) override {
    model_.take(event);
    view_->take(event);
  }

  void onHostLine(std::string_view line) override {
    if (diagnosticsFile_) diagnosticsFile_->writeLine(line);
  }

  void onReady() override {
    watchTerminal();
    watchKeyboard();
  }

  void onRefresh() override {
    view_->refresh();
    if (diagnosticsFile_) diagnosticsFile_->flush();
    if (output_.state() != tools::Output::State::open) runner_.end();
  }

  bool holdsSource() override { return view_->holdsSource(); }
  void onSourceEnd() override { runner_.end(); }
  void onEndSignal() override { runner_.end(); }

  void watchTerminal() {
    resizeSignal_ = queue_.onSignal({SIGWINCH}, [this](int) { view_->resized(); });
    // Ctrl-Z: the terminal is restored before the program stops, by SIGSTOP because SIGTSTP is
    // handled here.
    stopSignal_ = queue_.onSignal({SIGTSTP}, [this](int) {
      view_->suspend();
      static_cast<void>(std::raise(SIGSTOP));
      view_->resume();
    });
  }

  // Only the screen has keys. With JSON lines standard input belongs to another program.
  void watchKeyboard() {
    if (dynamic_cast<ScreenView*>(view_.get()) == nullptr || ::isatty(STDIN_FILENO) == 0) return;
    keyboard_ = queue_.watch(STDIN_FILENO, main_queue::Interest::read, [this] {
      std::array<char, 64> keys{};
      const ssize_t count = ::read(STDIN_FILENO, keys.data(), keys.size());
      if (count <= 0) {
        keyboard_.cancel();
      } else if (std::string_view(keys.data(), static_cast<std::size_t>(count)).find('q') !=
                 std::string_view::npos) {
        runner_.end();
      }
    });
  }

  std::vector<std::string> complaints(const watch::SourceReport& report,
                                      const watch::Summary& summary) {
    std::vector<std::string> complaints = report.complaints;
    for (std::string& loss : watch::losses(summary)) complaints.push_back(std::move(loss));
    // Not of a capture, which is played completely all the same, and not where the output ended the
    // session.
    if (!replayed_ && summary.connections == 0 && output_.state() == tools::Output::State::open) {
      complaints.emplace_back(watch::noStrapConnected);
    }
    if (options_.requireAll) {
      for (const std::string& kind : summary.neverArrived) {
        complaints.push_back("never arrived: " + kind);
      }
    }
    if (const auto failure = output_.failure()) {
      complaints.push_back("standard output: " + *failure);
    }
    if (const auto reason = diagnosticsFile_ ? diagnosticsFile_->finish() : std::nullopt) {
      complaints.push_back("--diagnostics: " + *reason);
    }
    return complaints;
  }

  const std::string& command_;
  const OutputOptions& options_;
  const std::chrono::milliseconds patience_;
  const bool replayed_;
  std::optional<DiagnosticsFile> diagnosticsFile_;
  main_queue::MainQueue queue_;
  tools::Output output_{STDOUT_FILENO};
  watch::SessionModel model_;
  std::unique_ptr<View> view_;
  main_queue::SignalWatch resizeSignal_;
  main_queue::SignalWatch stopSignal_;
  main_queue::Watch keyboard_;
  watch::SessionRunner runner_;
};

}  // namespace

int watchSession(const std::string& command, const watch::SourceOptions& source,
                 const OutputOptions& output) {
  return Monitor(command, source, output).run();
}

}  // namespace Zephly::monitor
