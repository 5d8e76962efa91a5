// SPDX-License-Identifier: MIT
#include <tools/inspect/inspect_command.h>

#include <capture/capture_error.h>
#include <capture/reader.h>
#include <capture/text.h>
#include <tools/common/json_object.h>
#include <tools/common/option_values.h>
#include <tools/common/output.h>
#include <tools/inspect/contents.h>
#include <tools/inspect/contents_text.h>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::inspect {

namespace {

using capture::CaptureError;

struct Options {
  std::filesystem::path file;
  bool json = false;
};

struct Inspected {
  capture::Preamble preamble;
  Contents contents;
  bool ended = false;
  std::uint64_t unknownRecords = 0;
  std::uint32_t files = 1;           // of the recording
  std::vector<CaptureError> damage;  // the first ones
  std::uint64_t damageCount = 0;
};

void addDamage(Inspected& inspected, const CaptureError& error) {
  ++inspected.damageCount;
  if (inspected.damage.size() < longestList) inspected.damage.push_back(error);
}

// A file may end after a complete record without an end record: that is reported, unless the reader
// has already reported how the file ends.
void checkEnd(Inspected& inspected, const capture::Reader& reader,
              const std::filesystem::path& file) {
  const bool reported =
      !inspected.damage.empty() && inspected.damage.back().kind() != CaptureError::Kind::damaged;
  if (inspected.ended || reported) return;
  addDamage(inspected, CaptureError(CaptureError::Kind::cut, file, reader.offset(),
                                    "ends without an end record, " +
                                        counted(reader.wholeRecords(), "whole record") + " read"));
}

Inspected inspect(const std::filesystem::path& file) {
  capture::Reader reader(file);
  Inspected inspected;
  inspected.preamble = reader.preamble();
  while (true) {
    try {
      const auto record = reader.next();
      if (!record) break;
      inspected.contents.take(*record);
    } catch (const CaptureError& error) {
      addDamage(inspected, error);
    }
  }
  inspected.contents.finish();
  inspected.ended = reader.ended();
  inspected.unknownRecords = reader.unknownRecords();
  checkEnd(inspected, reader, reader.file());
  inspected.files = reader.parts();
  if (reader.lostRecords() > 0) {
    addDamage(inspected, CaptureError(CaptureError::Kind::damaged, file, 0,
                                      counted(reader.lostRecords(), "record") +
                                          " lost while nothing could be written"));
  }
  return inspected;
}

// "2026-11-21T19:18:01Z"; a time outside the calendar as a number.
std::string timeText(std::chrono::nanoseconds sinceEpoch) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  const std::time_t time = whole.count();
  std::tm parts{};
  std::array<char, 64> text{};
  if (::gmtime_r(&time, &parts) == nullptr ||
      std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
    return std::to_string(whole.count()) + " s";
  }
  return text.data();
}

std::string textOf(const Inspected& inspected, const std::filesystem::path& file) {
  const capture::Preamble& preamble = inspected.preamble;
  std::string text = "Capture " + capture::printable(file.string()) + "\n";
  text += "  written by   " + capture::printable(preamble.program) + "\n";
  text += "  source       " + capture::printable(preamble.source) +
          (preamble.simulated ? " (simulated)" : "") + "\n";
  if (inspected.files > 1) {
    text += "  files        " + std::to_string(inspected.files) + "\n";
  } else if (preamble.continues) {
    text += "  part         " + std::to_string(preamble.continues->part) + " of a recording\n";
  }
  text += "  began        " + timeText(preamble.began) + "\n";
  text += "  duration     " + capture::clockText(inspected.contents.duration()) + "\n";
  text += "  end          " + std::string(inspected.ended ? "orderly" : "cut") + "\n";
  text += "  records      " + std::to_string(inspected.contents.records());
  if (inspected.unknownRecords > 0) {
    text += ", and " + std::to_string(inspected.unknownRecords) + " of unknown types";
  }
  text += "\n" + contentsText(inspected.contents);
  for (const CaptureError& error : inspected.damage) {
    text +=
        "  damage       at byte " + std::to_string(error.offset()) + ": " + error.reason() + "\n";
  }
  return text;
}

std::string jsonOf(const Inspected& inspected, const std::filesystem::path& file) {
  const capture::Preamble& preamble = inspected.preamble;
  tools::JsonObject json;
  json.add("file", file.string())
      .add("program", preamble.program)
      .add("source", preamble.source)
      .add("simulated", preamble.simulated)
      .add("began", timeText(preamble.began))
      .add("ended", inspected.ended)
      .add("unknownRecords", inspected.unknownRecords)
      .add("files", inspected.files);
  addContents(json, inspected.contents);
  tools::JsonArray damage;
  for (const CaptureError& error : inspected.damage) {
    damage.add(tools::JsonObject().add("offset", error.offset()).add("what", error.reason()));
  }
  json.add("damageCount", inspected.damageCount).add("damage", damage);
  return json.text() + "\n";
}

int run(const Options& options) {
  const Inspected inspected = inspect(options.file);
  tools::Output output(STDOUT_FILENO);
  output.write(options.json ? jsonOf(inspected, options.file) : textOf(inspected, options.file));
  output.finish();
  std::string complaint;
  if (!inspected.damage.empty()) {
    complaint = inspected.damage.front().what();
    if (inspected.damageCount > 1) {
      complaint += " (and " + std::to_string(inspected.damageCount - 1) + " more)";
    }
  } else if (const auto failure = output.failure()) {
    complaint = "standard output: " + *failure;
  }
  if (complaint.empty()) return tools::exitDone;
  std::cerr << "zephly inspect: " << complaint << '\n';
  return tools::exitFailed;
}

}  // namespace

tools::Command addInspectCommand(CLI::App& program) {
  CLI::App* command =
      program.add_subcommand("inspect", "Show the contents of a capture, and any damage");
  command->footer(
      "Examples:\n"
      "  zephly inspect walk.zcap\n"
      "  zephly inspect walk.zcap --json | jq .duration\n"
      "\n"
      "docs/capture-format.md describes the output. Of a damaged capture it shows all that can be "
      "read.\n"
      "Exit code: 0 complete capture; 1 incomplete, damaged or not a capture; 2 wrong options.");
  const auto options = std::make_shared<Options>();
  tools::addValue(*command, "FILE", "", "The capture (.zcap)", [options](const std::string& text) {
    options->file = tools::fileValue("FILE", text);
  })->required();
  tools::addFlag(*command, "--json", options->json, "Write one JSON object");
  return {command, [options] { return run(*options); }};
}

}  // namespace Zephly::inspect
