// SPDX-License-Identifier: MIT
// Captures: any file is read to its end, inspected, and replayed to a session as by `zephly
// replay`.
//
// The file (fuzz/support/any_capture.h) is in memory. Read errors of a disk are not covered.

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <hosts/replay/contradiction.h>
#include <hosts/replay/record_order.h>
#include <hosts/replay/replay_host.h>
#include <tests/support/every_call.h>
#include <tests/support/session_test_access.h>
#include <tools/inspect/contents.h>
#include <tools/inspect/contents_text.h>
#include <zephly/motion/madgwick_ahrs.h>
#include <zephly/zephly.h>
#include <fuzz/support/any_capture.h>
#include <fuzz/support/input.h>
#include <fuzz/support/quiet.h>
#include <fuzz/support/reclaim.h>
#include <fuzz/support/require.h>
#include <fuzz/support/target.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

namespace {

using fuzz::Input;
using fuzz::require;
using namespace Zephly::capture;

void requireOneLine(const CaptureError& error, std::size_t fileSize) {
  require(std::string(error.what()).find('\n') == std::string::npos, "an error is one line");
  require(error.offset() <= fileSize, "an error lies in the file");
}

void inspectAll(const std::filesystem::path& path, std::size_t fileSize) {
  Reader reader(path);
  Zephly::inspect::Contents contents;
  // Every call of next() consumes at least one byte, and reports at most two problems in it.
  for (std::size_t calls = 0;; ++calls) {
    require(calls <= 2 * fileSize + 2, "reading comes to an end");
    try {
      const auto record = reader.next();
      if (!record) break;
      contents.take(*record);
    } catch (const CaptureError& error) {
      requireOneLine(error, fileSize);
    }
  }
  require(reader.offset() <= fileSize, "the end of reading lies in the file");
  require(!reader.next(), "the end is the end");
  contents.finish();
  require(!Zephly::inspect::contentsText(contents).empty(), "contents as text");
  Zephly::tools::JsonObject json;
  Zephly::inspect::addContents(json, contents);
  require(nlohmann::json::accept(json.text()), "contents as JSON");
}

class Replay {
 public:
  explicit Replay(std::filesystem::path path) : records_(std::move(path)) {
    q0 = 1;
    q1 = q2 = q3 = 0;
    session_ = reclaim_.during([this] { return Zephly::Zephly::init(application_); });
  }
  ~Replay() { SessionTestAccess::release(*session_); }
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  void play() {
    // Six samples of respiration are the most expensive content of a record.
    int left = 64;
    while (const auto record = records_.next()) {
      if (left-- == 0) return;
      try {
        host_.deliver(*record);
      } catch (const Zephly::replay::Contradiction& contradiction) {
        throw records_.damaged(contradiction.what());
      }
    }
    static_cast<void>(records_.complaint(host_.divergences()));
  }

 private:
  fuzz::Reclaim reclaim_;
  fuzz::Quiet quiet_;
  Zephly::replay::RecordOrder records_;
  Zephly::replay::ReplayHost host_;
  std::shared_ptr<recorded::Indifferent> application_ = std::make_shared<recorded::Indifferent>();
  std::shared_ptr<Zephly::Zephly> session_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Objects that are created once and kept must not be attributed to a session.
  struct First {
    Zephly::replay::ReplayHost host;
    std::shared_ptr<Zephly::Zephly> session = Zephly::Zephly::init(nullptr);
  };
  [[maybe_unused]] static const First* const first = new First;
  Input input(data, size);
  const auto file = fuzz::captureFrom(input);
  const auto& path = fuzz::fileInMemory(file);
  try {
    inspectAll(path, file.size());
    Replay(path).play();
  } catch (const CaptureError& error) {
    requireOneLine(error, file.size());
  }
  return 0;
}
