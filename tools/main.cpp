// SPDX-License-Identifier: MIT
/// The program `zephly`: finds the subcommand and runs it.

#include <tools/common/command.h>
#include <tools/common/option_values.h>
#include <tools/common/output.h>
#include <tools/common/suggestion.h>
#include <tools/common/text_stream.h>
#include <tools/common/version_text.h>
#include <tools/export/export_command.h>
#include <tools/inspect/inspect_command.h>
#include <tools/licenses/licenses.h>
#include <tools/monitor/monitor.h>
#include <tools/process/process_command.h>
#include <tools/record/record_command.h>
#include <tools/replay/replay_command.h>
#include <tools/report/report_command.h>
#include <tools/strap/strap_command.h>
#include <tools/view/view_command.h>
#include <tools/vitals/vitals_command.h>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <iterator>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Zephly::tools::Command;

// When the parent has closed one of the descriptors 0 to 2, the next file that is opened would get
// its number, and output would go into that file. Read only, so that output to a closed descriptor
// fails in place of disappearing.
void openStandardDescriptors() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) ::open("/dev/null", O_RDONLY);
  }
}

// A reader that has gone and a limit of the file size become errors of write().
void ignoreWriteSignals() {
  for (const int ignored : {SIGPIPE, SIGXFSZ}) static_cast<void>(std::signal(ignored, SIG_IGN));
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

std::vector<std::string> namesOf(const std::vector<Command>& commands) {
  std::vector<std::string> names;
  std::transform(commands.begin(), commands.end(), std::back_inserter(names),
                 [](const Command& command) { return command.options->get_name(); });
  return names;
}

// Boost adds the number of an error to its text: "epoll: Too many open files [system:24]".
std::string withoutNumber(std::string text) {
  const std::size_t number = text.find(" [system:");
  return number == std::string::npos ? text : text.erase(number);
}

// Needs no memory itself. `command`: the chosen one, or null.
int complainOfMemory(const Command* command) {
  std::cerr << "zephly";
  if (command != nullptr) std::cerr << ' ' << command->options->get_name();
  std::cerr << ": not enough memory\n";
  return Zephly::tools::exitFailed;
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
  if (const auto failure = output.failure()) {
    return complain("zephly", "standard output: " + *failure, Zephly::tools::exitFailed);
  }
  return output.state() == Zephly::tools::Output::State::open ? Zephly::tools::exitDone
                                                              : Zephly::tools::exitFailed;
}

std::string helpOrVersion(const CLI::App& program, const CLI::Success& request) {
  Zephly::tools::TextStream text;
  program.exit(request, text);
  return text.str();
}

std::vector<std::string> namesOfOptions(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    const std::string name = option->get_name();
    // Without a group it is for tests.
    if (name.starts_with("--") && !option->get_group().empty()) names.push_back(name);
  }
  return names;
}

// The first argument that nothing takes. CLI11 lists all of them, the last one first.
std::string unexpectedArgument(const CLI::App& program, int argc, char** argv) {
  const std::vector<std::string> rest = program.remaining(true);
  const auto* const found = std::find_if(argv + 1, argv + argc, [&](const char* argument) {
    return std::find(rest.begin(), rest.end(), argument) != rest.end();
  });
  return found == argv + argc ? rest.front() : *found;
}

std::string didYouMean(const std::optional<std::string>& word) {
  return word ? "; did you mean " + *word + "?" : "";
}

std::string unknownSubcommand(const std::string& word, const std::vector<Command>& commands) {
  return "unknown subcommand \"" + word + "\"" +
         didYouMean(Zephly::tools::nearestWord(word, namesOf(commands)));
}

// `command`: the chosen one, or null.
std::string unexpected(const std::string& argument, const Command* command,
                       const std::vector<Command>& commands) {
  const bool option = argument.size() > 1 && argument.front() == '-';
  if (!option) {
    return command == nullptr ? unknownSubcommand(argument, commands)
                              : "unexpected argument \"" + argument + "\"";
  }
  const std::string name = argument.substr(0, argument.find('='));
  if (command != nullptr) {
    return "unknown option \"" + name + "\"" +
           didYouMean(Zephly::tools::nearestWord(name, namesOfOptions(*command->options)));
  }
  for (const Command& other : commands) {
    const auto names = namesOfOptions(*other.options);
    if (std::find(names.begin(), names.end(), name) == names.end()) continue;
    return name + " belongs behind a subcommand: zephly " + other.options->get_name() + " " + name;
  }
  return "unknown option \"" + name + "\"";
}

int printHelpOf(const std::string& name, const CLI::App& program,
                const std::vector<Command>& commands) {
  // CLI::App::help() would print the help of the parsed subcommand, which is help itself.
  const auto helpOf = [&](const CLI::App& app, const std::string& title) {
    return program.get_formatter()->make_help(&app, title, CLI::AppFormatMode::Normal);
  };
  if (name.empty()) return print(helpOf(program, "zephly"));
  const auto found = std::find_if(commands.begin(), commands.end(), [&](const Command& command) {
    return command.options->get_name() == name;
  });
  if (found == commands.end()) {
    return complain("zephly help", unknownSubcommand(name, commands) + " (see zephly --help)",
                    Zephly::tools::exitBadOption);
  }
  return print(helpOf(*found->options, "zephly " + name));
}

int run(int argc, char** argv) {
  CLI::App program("Tools for the Zephly chest strap.", "zephly");
  program.set_version_flag("--version", Zephly::tools::versionText);
  bool licenses = false;
  Zephly::tools::addFlag(program, "--licenses", licenses,
                         "Display the licenses of the program and of the libraries in it and exit");
  program.require_subcommand(0, 1);
  program.footer(
      "Examples:\n"
      "  zephly monitor --simulated               watch a simulated strap\n"
      "  zephly record walk.zcap --duration 1h    record the strap in Bluetooth range\n"
      "\n"
      "zephly help SUBCOMMAND prints the options of a subcommand. Manual page: man zephly.");
  std::vector<Command> commands = {
      Zephly::monitor::addMonitorCommand(program),    Zephly::view::addViewCommand(program),
      Zephly::record::addRecordCommand(program),      Zephly::inspect::addInspectCommand(program),
      Zephly::replay::addReplayCommand(program),      Zephly::exporting::addExportCommand(program),
      Zephly::recorders::addVitalsCommand(program),   Zephly::reporting::addReportCommand(program),
      Zephly::processing::addProcessCommand(program), Zephly::peripheral::addStrapCommand(program)};
  std::string helpSubject;
  CLI::App* help = program.add_subcommand("help", "Print the help of a subcommand");
  Zephly::tools::addValue(*help, "SUBCOMMAND", "", "The subcommand (default: the list of them)",
                          [&](const std::string& text) { helpSubject = text; });
  help->footer("Examples:\n  zephly help\n  zephly help record");
  commands.push_back({help, [&] { return printHelpOf(helpSubject, program, commands); }});
  const auto who = [&] {
    const Command* command = chosen(commands);
    return command == nullptr ? "zephly" : "zephly " + command->options->get_name();
  };
  const auto badOption = [&](const std::string& message) {
    return complain(who(), message + " (see " + who() + " --help)", Zephly::tools::exitBadOption);
  };
  try {
    program.parse(argc, argv);
    if (licenses) return print(Zephly::tools::licenseTexts());
    const Command* command = chosen(commands);
    if (command == nullptr) {
      return badOption("which subcommand? For example: zephly monitor --simulated");
    }
    return command->run();
  } catch (const CLI::Success& request) {
    return print(helpOrVersion(program, request));
  } catch (const CLI::ArgumentMismatch&) {
    // addValue() and addFlag() check the values that are there. CLI11 itself throws this only when
    // the last argument is an option and its value is missing.
    return complain(who(), argv[argc - 1] + std::string(": ") + Zephly::tools::exactlyOneValue,
                    Zephly::tools::exitBadOption);
  } catch (const CLI::ExtrasError&) {
    return badOption(
        unexpected(unexpectedArgument(program, argc, argv), chosen(commands), commands));
  } catch (const CLI::RequiredError& error) {
    return badOption(error.what());
  } catch (const CLI::ParseError& error) {
    return complain(who(), error.what(), Zephly::tools::exitBadOption);
  } catch (const std::bad_alloc&) {
    return complainOfMemory(chosen(commands));
  } catch (const std::exception& error) {
    return complain(who(), withoutNumber(error.what()), Zephly::tools::exitFailed);
  }
}

}  // namespace

int main(int argc, char** argv) {
  openStandardDescriptors();
  ignoreWriteSignals();
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    return complainOfMemory(nullptr);
  } catch (const std::exception& error) {
    return complain("zephly", withoutNumber(error.what()), Zephly::tools::exitFailed);
  }
}
