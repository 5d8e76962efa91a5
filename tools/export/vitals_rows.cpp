// SPDX-License-Identifier: MIT
#include <tools/export/vitals_rows.h>

namespace Zephly::exporting {

namespace {

constexpr int qualityDigits = 3;
constexpr int rateDigits = 2;
constexpr int secondDigits = 6;

const char* flagText(bool flag) { return flag ? "1" : "0"; }

}  // namespace

void writeBeat(CsvFile& file, const vitals::Beat& beat) {
  file.begin(beat.time);
  file.fixed(beat.rr, secondDigits);
  file.text(vitals::beatClassName(beat.kind));
  file.fixed(beat.quality, qualityDigits);
  file.number(static_cast<float>(beat.amplitude));
  file.text(flagText(beat.late));
  file.endRow();
}

void writeBreath(CsvFile& file, const vitals::Breath& breath) {
  file.begin(breath.time);
  file.fixed(breath.duration, secondDigits);
  file.fixed(breath.depth, qualityDigits);
  file.fixed(breath.quality, qualityDigits);
  file.text(flagText(breath.derived));
  file.endRow();
}

void writeSecond(CsvFile& file, const vitals::Second& second) {
  file.begin(second.time);
  file.fixed(second.heartRate, rateDigits);
  file.fixed(second.heartRateQuality, qualityDigits);
  file.fixed(second.ecgQuality, qualityDigits);
  file.fixed(second.breathingRate, rateDigits);
  file.fixed(second.breathingQuality, qualityDigits);
  file.text(flagText(second.breathingDerived));
  file.fixed(second.respirationQuality, qualityDigits);
  file.text(second.contact ? flagText(*second.contact) : "");
  file.endRow();
}

}  // namespace Zephly::exporting
