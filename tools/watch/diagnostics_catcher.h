#pragma once
/// @file
/// Catches what the kit writes to standard output, line by line, while the object lives.
///
///   DiagnosticsCatcher catcher([&](std::string_view line) { show(line); });
///
/// It replaces the buffer of std::cout, which the kit's diagnostic lines follow. A line is passed
/// on, without its end, as soon as it is complete; what stands without an end is passed on at the
/// end.

#include <functional>
#include <streambuf>
#include <string>
#include <string_view>

namespace Zephly::watch {

class DiagnosticsCatcher final : public std::streambuf {
 public:
  using Handler = std::function<void(std::string_view)>;

  explicit DiagnosticsCatcher(Handler handler);
  DiagnosticsCatcher(const DiagnosticsCatcher&) = delete;
  DiagnosticsCatcher& operator=(const DiagnosticsCatcher&) = delete;
  /// Gives std::cout its buffer back.
  ~DiagnosticsCatcher() override;

 protected:
  int_type overflow(int_type character) override;
  std::streamsize xsputn(const char* text, std::streamsize count) override;

 private:
  void take(std::string_view text);

  Handler handler_;
  std::string line_;
  std::streambuf* original_;
};

}  // namespace Zephly::watch
