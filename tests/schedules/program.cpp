// SPDX-License-Identifier: MIT
#include <tests/schedules/program.h>

#include <tests/schedules/allocations.h>
#include <tools/common/command.h>
#include <tools/monitor/monitor.h>
#include <tools/record/record_command.h>
#include <tools/view/view_command.h>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>
#include <new>
#include <sstream>
#include <system_error>
#include <utility>

namespace schedules {

using Zephly::main_queue::FileDescriptor;

Program::Program(const std::filesystem::path& folder, std::vector<std::string> arguments)
    : errors_(folder / "errors"), arguments_(std::move(arguments)) {
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  output_ = FileDescriptor(pipe[0]);
  ::fcntl(pipe[0], F_SETFL, O_NONBLOCK);
  ::dup2(pipe[1], STDOUT_FILENO);
  ::close(pipe[1]);
  const FileDescriptor errors(::open(errors_.c_str(), O_CREAT | O_TRUNC | O_RDWR | O_APPEND, 0600));
  ::dup2(errors.get(), STDERR_FILENO);
}

ProgramResult Program::run() {
  ProgramResult result;
  CLI::App program("", "zephly");
  const std::vector<Zephly::tools::Command> commands = {Zephly::record::addRecordCommand(program),
                                                        Zephly::monitor::addMonitorCommand(program),
                                                        Zephly::view::addViewCommand(program)};
  std::reverse(arguments_.begin(), arguments_.end());  // as CLI11 takes them
  try {
    program.parse(arguments_);
    for (const auto& command : commands) {
      if (command.options->parsed()) result.exitCode = command.run();
    }
  } catch (const std::bad_alloc&) {
    // As the program's main function does.
    std::cerr << "zephly: not enough memory\n";
    result.exitCode = Zephly::tools::exitFailed;
  } catch (const std::exception& error) {
    std::cerr << "zephly: " << error.what() << '\n';
    result.exitCode = Zephly::tools::exitFailed;
  }
  const Spared spared;
  std::cout.flush();
  read();
  std::istringstream text(text_);
  for (std::string line; std::getline(text, line);) result.lines.push_back(line);
  std::ifstream errors(errors_);
  result.errors.assign(std::istreambuf_iterator<char>(errors), {});
  return result;
}

void Program::read() {
  std::array<char, 65'536> buffer{};
  for (ssize_t count = 0; (count = ::read(output_.get(), buffer.data(), buffer.size())) > 0;) {
    text_.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace schedules
