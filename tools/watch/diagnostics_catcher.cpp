#include <tools/watch/diagnostics_catcher.h>

#include <iostream>
#include <utility>

namespace Zephly::watch {

DiagnosticsCatcher::DiagnosticsCatcher(Handler handler)
    : handler_(std::move(handler)), original_(std::cout.rdbuf(this)) {}

DiagnosticsCatcher::~DiagnosticsCatcher() {
  std::cout.rdbuf(original_);
  if (!line_.empty()) handler_(line_);
}

DiagnosticsCatcher::int_type DiagnosticsCatcher::overflow(int_type character) {
  if (!traits_type::eq_int_type(character, traits_type::eof())) {
    const char single = traits_type::to_char_type(character);
    take({&single, 1});
  }
  return traits_type::not_eof(character);
}

std::streamsize DiagnosticsCatcher::xsputn(const char* text, std::streamsize count) {
  take({text, static_cast<std::size_t>(count)});
  return count;
}

void DiagnosticsCatcher::take(std::string_view text) {
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    line_ += text.substr(0, end);
    // Emptied before the call: the handler may write a line itself.
    handler_(std::exchange(line_, {}));
    text.remove_prefix(end + 1);
  }
  line_ += text;
}

}  // namespace Zephly::watch
