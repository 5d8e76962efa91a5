// SPDX-License-Identifier: MIT
#include <tools/monitor/diagnostics_file.h>

#include <tools/common/output_path.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <new>

namespace Zephly::monitor {

namespace {

bool existsAsFile(const std::filesystem::path& target) {
  struct stat status {};
  if (::lstat(target.c_str(), &status) < 0) {
    if (errno == ENOENT) return false;
    throw tools::cannotWrite(target, errno);
  }
  // Opening a pipe would wait for its reader.
  if (!S_ISREG(status.st_mode)) throw tools::cannotWrite(target, "not a regular file");
  return true;
}

}  // namespace

DiagnosticsFile::DiagnosticsFile(const std::filesystem::path& path,
                                 const DiagnosticsOptions& options)
    : target_(tools::outputTarget(path)), place_(target_) {
  for (const std::filesystem::path& input : options.inputs) tools::refuseInput(target_, input);
  const bool exists = existsAsFile(target_);
  if (exists && !options.overwrite) {
    throw tools::cannotWrite(target_, "it exists already (see --force)");
  }
  if (exists) {
    lock_ = capture::FileLock::take(target_);
    if (!lock_) throw tools::cannotWrite(target_, "another program is recording to it");
    place_ += ".part-" + std::to_string(::getpid());
  }
  file_ = main_queue::FileDescriptor(
      ::open(place_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (file_.get() < 0) throw tools::cannotWrite(target_, errno);
  output_.emplace(file_.get());
}

DiagnosticsFile::~DiagnosticsFile() {
  if (!published_) ::unlink(place_.c_str());
}

void DiagnosticsFile::writeLine(std::string_view line) {
  output_->write(line);
  output_->write("\n");
}

DiagnosticsFile::int_type DiagnosticsFile::overflow(int_type character) {
  if (!traits_type::eq_int_type(character, traits_type::eof())) {
    const char single = traits_type::to_char_type(character);
    xsputn(&single, 1);
  }
  return traits_type::not_eof(character);
}

// The stream above would catch the exception and write nothing more.
std::streamsize DiagnosticsFile::xsputn(const char* text, std::streamsize count) {
  try {
    output_->write({text, static_cast<std::size_t>(count)});
  } catch (const std::bad_alloc&) {
    incomplete_ = true;
  }
  return count;
}

void DiagnosticsFile::flush() {
  if (output_->pending() == 0 || !output_->flush()) return;
  publish();
}

void DiagnosticsFile::publish() {
  if (published_ || output_->state() != tools::Output::State::open) return;
  published_ = true;
  if (place_ == target_ || std::rename(place_.c_str(), target_.c_str()) == 0) return;
  renameError_ = tools::cannotWrite(target_, errno).what();
  ::unlink(place_.c_str());
}

std::optional<std::string> DiagnosticsFile::finish() {
  output_->finish();
  publish();
  if (renameError_) return renameError_;
  if (incomplete_) return tools::cannotWrite(target_, ENOMEM).what();
  if (const auto failure = output_->failure()) return tools::cannotWrite(target_, *failure).what();
  return std::nullopt;
}

}  // namespace Zephly::monitor
