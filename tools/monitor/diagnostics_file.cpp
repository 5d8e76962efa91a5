// SPDX-License-Identifier: MIT
#include <tools/monitor/diagnostics_file.h>

#include <fcntl.h>

#include <cerrno>
#include <cstddef>
#include <system_error>

namespace Zephly::monitor {

namespace {

int openFile(const std::filesystem::path& path) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category());
  return descriptor;
}

}  // namespace

DiagnosticsFile::DiagnosticsFile(const std::filesystem::path& path)
    : file_(openFile(path)), output_(file_.get()) {}

void DiagnosticsFile::writeLine(std::string_view line) {
  output_.write(line);
  output_.write("\n");
}

DiagnosticsFile::int_type DiagnosticsFile::overflow(int_type character) {
  if (!traits_type::eq_int_type(character, traits_type::eof())) {
    const char single = traits_type::to_char_type(character);
    output_.write({&single, 1});
  }
  return traits_type::not_eof(character);
}

std::streamsize DiagnosticsFile::xsputn(const char* text, std::streamsize count) {
  output_.write({text, static_cast<std::size_t>(count)});
  return count;
}

std::optional<std::string> DiagnosticsFile::finish() {
  const bool complete = output_.finish();
  switch (output_.state()) {
    case tools::Output::State::failed:
      return output_.error();
    case tools::Output::State::closed:
      return std::generic_category().message(EPIPE);
    case tools::Output::State::open:
      break;
  }
  if (!complete) return "its reader does not read";
  return std::nullopt;
}

}  // namespace Zephly::monitor
