/// The program `zephly`: finds the subcommand and runs it.

#include <tools/common/command.h>
#include <tools/common/output.h>
#include <tools/common/version_text.h>
#include <tools/export/export_command.h>
#include <tools/inspect/inspect_command.h>
#include <tools/monitor/monitor.h>
#include <tools/record/record_command.h>
#include <tools/replay/replay_command.h>
#include <tools/strap/strap_command.h>
#include <tools/view/view_command.h>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Zephly::tools::Command;

// Descriptors 0 to 2 that somebody has closed would be given to the next file that is opened.
void openStandardDescriptors() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) ::open("/dev/null", O_RDWR);
  }
}

// The message in one line, whatever was in the options.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, ' ');
  return text;
}

const Command* chosen(const std::vector<Command>& commands) {
  const auto found = std::find_if(commands.begin(), commands.end(),
                                  [](const Command& command) { return command.options->parsed(); });
  return found == commands.end() ? nullptr : &*found;
}

// "monitor, strap"
std::string namesOf(const std::vector<Command>& commands) {
  std::string names;
  for (const Command& command : commands) {
    names += (names.empty() ? "" : ", ") + command.options->get_name();
  }
  return names;
}

int complain(const std::string& who, const std::string& message, int exitCode) {
  std::cerr << who << ": " << oneLine(message) << '\n';
  return exitCode;
}

// What was expected, in the words of this program.
std::string messageOf(const CLI::ParseError& error) {
  std::string text = error.what();
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    // "--speed: 1 required X missing", but "json was given a disallowed flag override".
    const std::size_t colon = text.find(": ");
    if (colon == std::string::npos) {
      return "--" + text.substr(0, text.find(' ')) + ": expected no value";
    }
    return text.substr(0, colon) + ": expected exactly one value, and once only";
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) return text + " (see --help)";
  return text;
}

// What --help and --version print.
int print(const CLI::App& program, const CLI::ParseError& request) {
  std::ostringstream text;
  const int exitCode = program.exit(request, text, std::cerr);
  Zephly::tools::Output output(STDOUT_FILENO);
  output.write(text.str());
  output.finish();
  if (output.state() != Zephly::tools::Output::State::failed) return exitCode;
  return complain("zephly", "standard output: " + output.error(), Zephly::tools::exitFailed);
}

int run(int argc, char** argv) {
  CLI::App program("Tools for the Zephly chest strap.", "zephly");
  program.set_version_flag("--version", Zephly::tools::versionText);
  program.require_subcommand(0, 1);
  const std::vector<Command> commands = {
      Zephly::monitor::addMonitorCommand(program), Zephly::view::addViewCommand(program),
      Zephly::record::addRecordCommand(program),   Zephly::inspect::addInspectCommand(program),
      Zephly::replay::addReplayCommand(program),   Zephly::exporting::addExportCommand(program),
      Zephly::peripheral::addStrapCommand(program)};
  const auto who = [&] {
    const Command* command = chosen(commands);
    return command == nullptr ? "zephly" : "zephly " + command->options->get_name();
  };
  try {
    program.parse(argc, argv);
    const Command* command = chosen(commands);
    if (command == nullptr) throw CLI::RequiredError("A subcommand (" + namesOf(commands) + ")");
    return command->run();
  } catch (const CLI::ParseError& error) {
    // Help and version are no errors.
    if (error.get_exit_code() == 0) return print(program, error);
    return complain(who(), messageOf(error), Zephly::tools::exitBadOption);
  } catch (const std::exception& error) {
    return complain(who(), error.what(), Zephly::tools::exitFailed);
  }
}

}  // namespace

int main(int argc, char** argv) {
  openStandardDescriptors();
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    return complain("zephly", error.what(), Zephly::tools::exitFailed);
  }
}
