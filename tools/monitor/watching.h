#pragma once
/// @file
/// A session on any source, shown to a person or a program from its beginning to its end.
///
///   return watchSession("monitor", output, [&](auto& queue, auto report, auto ended) {
///     return watch::makeSource(queue, options, std::move(report), std::move(ended));
///   });

#include <hosts/main_queue/main_queue.h>
#include <tools/monitor/options.h>
#include <tools/watch/source.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace Zephly::monitor {

/// Makes what is watched, see watch::makeSource.
using SourceMaker = std::function<std::unique_ptr<watch::Source>(
    main_queue::MainQueue& queue, std::function<void(std::string_view)> report,
    std::function<void()> ended)>;

/// Shows the session as the options say and the terminal allows, and returns the exit code; what
/// went wrong is told on standard error, one line each, in the name of the subcommand `command`.
/// Ignores SIGPIPE from then on. Throws CLI::ValidationError when the file for the diagnostic
/// lines cannot be opened, and what `makeSource` throws.
int watchSession(const std::string& command, const OutputOptions& options,
                 const SourceMaker& makeSource);

}  // namespace Zephly::monitor
