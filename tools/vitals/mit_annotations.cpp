// SPDX-License-Identifier: MIT
#include <tools/vitals/mit_annotations.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <locale>
#include <sstream>

namespace Zephly::recorders {

namespace {

// Codes of annotations, and of words that belong to one.
constexpr std::uint16_t normalBeat = 1;
constexpr std::uint16_t unclassifiedBeat = 13;
constexpr std::uint16_t isolatedArtefact = 16;
constexpr std::uint16_t noteCode = 22;
constexpr std::uint16_t skipCode = 59;
constexpr std::uint16_t textCode = 63;

constexpr std::uint64_t longestStep = 1023;              // samples in a word of 10 bits
constexpr std::uint64_t longestSkip = (1ULL << 31) - 1;  // samples

std::uint16_t codeOf(vitals::BeatClass kind) {
  switch (kind) {
    case vitals::BeatClass::ectopic:
      return unclassifiedBeat;
    case vitals::BeatClass::artefact:
      return isolatedArtefact;
    default:
      return normalBeat;
  }
}

// Words are little-endian.
void appendWord(std::string& bytes, std::uint64_t word) {
  bytes += static_cast<char>(word & 0xFFU);
  bytes += static_cast<char>(word >> 8U & 0xFFU);
}

void appendCode(std::string& bytes, std::uint16_t code, std::uint64_t low) {
  appendWord(bytes, static_cast<std::uint64_t>(code) << 10U | low);
}

// The higher word of the number of samples comes first.
void appendSkip(std::string& bytes, std::uint64_t samples) {
  appendCode(bytes, skipCode, 0);
  appendWord(bytes, samples >> 16U);
  appendWord(bytes, samples & 0xFFFFU);
}

void appendAnnotation(std::string& bytes, std::uint16_t code, std::uint64_t step) {
  for (; step > longestSkip; step -= longestSkip) appendSkip(bytes, longestSkip);
  if (step > longestStep) {
    appendSkip(bytes, step);
    step = 0;
  }
  appendCode(bytes, code, step);
}

void appendText(std::string& bytes, const std::string& text) {
  appendCode(bytes, textCode, text.size());
  bytes += text;
  if (text.size() % 2 != 0) bytes += '\0';
}

}  // namespace

void MitAnnotations::stateRate() {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text.precision(12);
  text << "## time resolution: " << rate_;
  note_ = text.str();
}

void MitAnnotations::beat(const vitals::Beat& beat) {
  const double seconds = std::chrono::duration<double>(beat.time).count();
  const auto sample = std::llround(std::max(0.0, seconds * rate_));
  annotations_.push_back({static_cast<std::uint64_t>(sample), codeOf(beat.kind)});
}

std::string MitAnnotations::bytes() const {
  std::vector<Annotation> sorted = annotations_;
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Annotation& a, const Annotation& b) { return a.sample < b.sample; });
  std::string bytes;
  if (!note_.empty()) {
    appendAnnotation(bytes, noteCode, 0);
    appendText(bytes, note_);
  }
  std::uint64_t last = 0;
  for (const Annotation& one : sorted) {
    appendAnnotation(bytes, one.code, one.sample - last);
    last = one.sample;
  }
  appendWord(bytes, 0);
  return bytes;
}

}  // namespace Zephly::recorders
