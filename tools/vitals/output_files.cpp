// SPDX-License-Identifier: MIT
#include <tools/common/output_path.h>
#include <tools/export/vitals_rows.h>
#include <tools/vitals/output_files.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <utility>

namespace Zephly::recorders {

namespace {

using exporting::CsvFile;
using exporting::PendingFile;
using exporting::WrittenFile;

void refuseNames(const OutputOptions& options, const std::vector<std::filesystem::path>& inputs) {
  const std::array<std::pair<const char*, const std::optional<std::filesystem::path>*>, 5> outputs =
      {{{"--beats", &options.beats},
        {"--breaths", &options.breaths},
        {"--vitals", &options.vitals},
        {"--rr", &options.rr},
        {"--annotations", &options.annotations}}};
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    const std::optional<std::filesystem::path>& output = *outputs[i].second;
    if (!output) continue;
    for (const std::filesystem::path& input : inputs) tools::refuseInput(*output, input);
    for (std::size_t j = 0; j < i; ++j) {
      if (!*outputs[j].second || !tools::isSameFile(*output, **outputs[j].second)) continue;
      throw tools::cannotWrite(
          *output, std::string(outputs[j].first) + " and " + outputs[i].first + " name one file");
    }
  }
}

std::unique_ptr<PendingFile> pendingFile(const std::optional<std::filesystem::path>& path,
                                         exporting::Existing existing) {
  return path ? std::make_unique<PendingFile>(*path, existing) : nullptr;
}

// Seconds with three digits: "61.250".
void appendMilliseconds(std::string& text, double seconds) {
  std::array<char, 64> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), seconds,
                                 std::chars_format::fixed, 3)
                       .ptr;
  text.append(digits.data(), end);
}

}  // namespace

// A CSV file that is not complete yet.
struct OutputFiles::Table {
  Table(const std::filesystem::path& path, exporting::Existing existing, const char* columns)
      : file(path, existing), rows(path, file.temporary(), columns, std::nullopt) {}

  PendingFile file;
  CsvFile rows;
};

OutputFiles::OutputFiles(const OutputOptions& options,
                         const std::vector<std::filesystem::path>& inputs,
                         const AnnotationClock& clock)
    : clock_(clock), beatCodes_(clock.rate) {
  refuseNames(options, inputs);
  const auto table = [&](const std::optional<std::filesystem::path>& path, const char* columns) {
    return path ? std::make_unique<Table>(*path, options.existing, columns) : nullptr;
  };
  beats_ = table(options.beats, exporting::beatColumns);
  breaths_ = table(options.breaths, exporting::breathColumns);
  vitals_ = table(options.vitals, exporting::secondColumns);
  rr_ = pendingFile(options.rr, options.existing);
  annotations_ = pendingFile(options.annotations, options.existing);
  if (!clock_.isOfTheRecord) beatCodes_.stateRate();
}

OutputFiles::~OutputFiles() = default;

void OutputFiles::beat(const vitals::Beat& beat) {
  if (!beatSpan_) beatSpan_ = {beat.time, beat.time};
  beatSpan_->to = std::max(beatSpan_->to, beat.time);
  if (beats_) exporting::writeBeat(beats_->rows, beat);
  if (rr_) takeInterval(beat);
  if (!annotations_) return;
  vitals::Beat counted = beat;
  counted.time -= clock_.begin;
  beatCodes_.beat(counted);
}

// Two columns: the time at which the interval ends, which shows gaps, and the interval.
void OutputFiles::takeInterval(const vitals::Beat& beat) {
  if (!beat.rr || beat.kind == vitals::BeatClass::artefact) return;
  appendMilliseconds(rrText_, std::chrono::duration<double>(beat.time).count());
  rrText_ += '\t';
  appendMilliseconds(rrText_, *beat.rr);
  rrText_ += '\n';
}

void OutputFiles::breath(const vitals::Breath& breath) {
  if (breaths_) exporting::writeBreath(breaths_->rows, breath);
}

void OutputFiles::second(const vitals::Second& second) {
  if (vitals_) exporting::writeSecond(vitals_->rows, second);
}

std::vector<WrittenFile> OutputFiles::publish() {
  const std::string codes = annotations_ ? beatCodes_.bytes() : "";
  const std::array tables = {beats_.get(), breaths_.get(), vitals_.get()};
  // What can fail for lack of space comes before anything gets its name.
  for (Table* const table : tables) {
    if (table != nullptr) table->rows.complete();
  }
  if (rr_) rr_->write(rrText_);
  if (annotations_) annotations_->write(codes);
  std::vector<WrittenFile> written;
  for (Table* const table : tables) {
    if (table == nullptr) continue;
    table->file.publish();
    written.push_back(table->rows.written());
  }
  const auto publishText = [&](const std::unique_ptr<PendingFile>& file, std::size_t bytes) {
    if (!file) return;
    file->publish();
    written.push_back({.path = file->path(), .bytes = bytes, .span = beatSpan_});
  };
  publishText(rr_, rrText_.size());
  publishText(annotations_, codes.size());
  return written;
}

}  // namespace Zephly::recorders
