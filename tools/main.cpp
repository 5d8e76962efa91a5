// SPDX-License-Identifier: MIT
/// The program `zephly`: finds the subcommand and runs it.

#include <tools/common/command.h>
#include <tools/common/option_values.h>
#include <tools/common/output.h>
#include <tools/common/version_text.h>
#include <tools/export/export_command.h>
#include <tools/inspect/inspect_command.h>
#include <tools/licenses/licenses.h>
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
#include <string_view>
#include <vector>

namespace {

using Zephly::tools::Command;

// When the parent has closed one of the descriptors 0 to 2, the next file that is opened would get
// its number, and output would go into that file.
void openStandardDescriptors() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) ::open("/dev/null", O_RDWR);
  }
}

// Options may hold line breaks and other control characters.
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

// The text of --help, --version and --licenses.
int print(std::string_view text) {
  Zephly::tools::Output output(STDOUT_FILENO);
  output.write(text);
  output.finish();
  switch (output.state()) {
    case Zephly::tools::Output::State::open:
      return output.pending() == 0 ? Zephly::tools::exitDone : Zephly::tools::exitFailed;
    case Zephly::tools::Output::State::closed:
      return Zephly::tools::exitFailed;
    case Zephly::tools::Output::State::failed:
      break;
  }
  return complain("zephly", "standard output: " + output.error(), Zephly::tools::exitFailed);
}

std::string helpOrVersion(const CLI::App& program, const CLI::Success& request) {
  std::ostringstream text;
  program.exit(request, text);
  return text.str();
}

int run(int argc, char** argv) {
  CLI::App program("Tools for the Zephly chest strap.", "zephly");
  program.set_version_flag("--version", Zephly::tools::versionText);
  bool licenses = false;
  Zephly::tools::addFlag(program, "--licenses", licenses,
                         "Display the licenses of the program and of the libraries in it and exit");
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
    if (licenses) return print(Zephly::tools::licenseTexts());
    const Command* command = chosen(commands);
    if (command == nullptr) throw CLI::RequiredError("A subcommand (" + namesOf(commands) + ")");
    return command->run();
  } catch (const CLI::Success& request) {
    return print(helpOrVersion(program, request));
  } catch (const CLI::ArgumentMismatch&) {
    // addValue() and addFlag() check the values that are there. CLI11 itself throws this only when
    // the last argument is an option and its value is missing.
    return complain(who(), argv[argc - 1] + std::string(": ") + Zephly::tools::exactlyOneValue,
                    Zephly::tools::exitBadOption);
  } catch (const CLI::ExtrasError& error) {
    return complain(who(), error.what() + std::string(" (see --help)"),
                    Zephly::tools::exitBadOption);
  } catch (const CLI::ParseError& error) {
    return complain(who(), error.what(), Zephly::tools::exitBadOption);
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
